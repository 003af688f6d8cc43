// The certificates that the kit is asked for, as its authority issues them.

// The widest that X.509 has for a name (RFC 5280, appendix A.1).
const MAX_NAME = 64;

const EMAIL = /^[\w.!%&'*+=?^`{|}~-]+@[\w.-]+$/;

/** When certificates end that have no date of their own: each a second before the one before, for that is their order in the window. */
const LAST = Date.UTC(2049, 11, 31, 23, 59, 59);

/** What Authority.issue takes for the certificate of this number. Throws a TypeError for what no certificate can have. */
export function orderOf({ cn = "Test User", email = "user@example.com", organisation = "Quillmark Test", from = "2022-11-15", to }, number) {
  for (const [what, name] of Object.entries({ cn, organisation })) {
    const isName = typeof name === "string" && name !== "" && name.length <= MAX_NAME && !/\p{C}/u.test(name);
    if (!isName) throw new TypeError(`${what} has to be a text of 1 to ${MAX_NAME} characters`);
  }
  if (email !== null && !EMAIL.test(email)) throw new TypeError(`${email} is no e-mail address`);
  return { cn, email, organisation, from: asOpenSsl(from), to: asOpenSsl(to ?? LAST - number * 1000) };
}

/** A Date, or what makes one, as openssl ca takes it: YYYYMMDDHHMMSSZ. */
function asOpenSsl(date) {
  const time = new Date(date);
  if (Number.isNaN(time.getTime())) throw new TypeError(`${date} is no date`);
  return time.toISOString().replaceAll(/[-:T]|\.\d+/g, "");
}
