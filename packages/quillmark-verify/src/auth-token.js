/** Logins: a challenge that names the site, and the signature over it. */

import { randomBytes } from "node:crypto";

import { checkKey, hashNamed, isSigned, nameOfHash } from "./algorithms.js";
import { Certificate, MAX_CERTIFICATE_BYTES } from "./certificate.js";
import { guarded, translated, VerificationError } from "./error.js";
import { MAX_SKEW_MS } from "./revocation-time.js";
import { bytesOf, settingsOf, textOf } from "./settings.js";
import { verdictOn } from "./verdict.js";

const SITE = /^[\x21-\x7e]{1,255}$/;
const CHALLENGE = /^Log in to ([\x21-\x7e]{1,255})\nat (\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)\nnumber ([\w-]{43})$/;

/** 256 bits: nobody guesses one, and no two are the same. */
const RANDOM_BYTES = 32;

const DEFAULT_MAX_AGE_MS = 5 * 60_000;
const MAX_SIGNATURE_BYTES = 1024;

/** A text for `signAuthToken`, of which the user sees every word. */
export function newChallenge(options) {
  const site = checkedSite(Object(options).site);
  return `Log in to ${site}\nat ${new Date().toISOString()}\nnumber ${randomBytes(RANDOM_BYTES).toString("base64url")}`;
}

/** Whether a text has the begin of a challenge: nothing else that is signed may. */
export const looksLikeChallenge = (text) => /^\s*log in to\s/i.test(text);

/** Verifies the signature over a challenge that was given out; see index.d.ts. */
export const verifyAuthToken = guarded(
  async ({ signature, challenge, site, certificate, hashAlgorithm = "SHA-256", maxAge = DEFAULT_MAX_AGE_MS, ...options }) => {
    const settings = settingsOf(options);
    const issuedAt = checkChallenge(textOf(challenge, "challenge"), checkedSite(site), maxAge, settings.at);
    const hash = hashNamed(hashAlgorithm);
    const der = bytesOf(certificate, "certificate", MAX_CERTIFICATE_BYTES);
    const signer = translated("MALFORMED", "the certificate", () => new Certificate(der));
    const bytes = bytesOf(signature, "signature", MAX_SIGNATURE_BYTES);
    checkKey(signer.publicKey);
    if (!isSigned({ hash, keyType: "rsa" }, Buffer.from(challenge), signer.publicKey, bytes))
      throw new VerificationError("SIGNATURE_INVALID");
    return { ...(await verdictOn(signer, settings)), issuedAt, hashAlgorithm: nameOfHash(hash) };
  },
);

function checkedSite(site) {
  if (typeof site !== "string" || !SITE.test(site))
    throw new VerificationError("INVALID_ARGUMENT", '"site" has to be a name without blanks.');
  return site;
}

/** The time at which the challenge was made for this site. */
function checkChallenge(challenge, site, maxAge, at) {
  if (!(maxAge > 0)) throw new VerificationError("INVALID_ARGUMENT", '"maxAge" has to be milliseconds.');
  const [, ownSite, written] = CHALLENGE.exec(challenge) ?? [];
  if (ownSite !== site) throw new VerificationError("CHALLENGE_INVALID");
  const issuedAt = new Date(written);
  const age = at - issuedAt;
  if (!(age >= -MAX_SKEW_MS)) throw new VerificationError("CHALLENGE_INVALID", "It is of a time to come.");
  if (age > maxAge) throw new VerificationError("CHALLENGE_EXPIRED");
  return issuedAt;
}
