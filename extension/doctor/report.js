/** What the doctor has found, in rows for the user and as a report for others. */

import { message, messageAround } from "../src/messages.js";
import { english, wordsForDate } from "../src/pages.js";

// A module of p11-kit's own that knows certificates and no token.
const TRUST_MODULE = "p11-kit-trust";

/** The tokens of a Diagnosis, those of all modules, as `quillmark-tokens --json` has them. */
export function tokensOf({ tokens }) {
  const modules = (tokens?.modules ?? []).filter(({ name }) => name !== TRUST_MODULE);
  return modules.flatMap(({ slots }) => slots).flatMap(({ token }) => token ?? []);
}

/** What is said of a token behind its name, as of `nodesOf`. */
export function wordsForToken({ model, serialNumber, offered, reason, pin }) {
  return inOneLine(
    model,
    serialNumber && message("token_number", serialNumber),
    pin && messageAround("token_pin", english(pin)),
    offered ? message("token_offered") : messageAround("token_not_offered", english(String(reason))),
  );
}

/** What is said of a certificate behind its name, as of `nodesOf`. */
export function wordsForCertificate({ offered, canSign, first, needsLogin, reasons, notAfter }) {
  const key = offered ? "certificate_cannot_sign" : "certificate_not_offered";
  return inOneLine(
    canSign ? message("certificate_can_sign") : messageAround(key, english(reasons.join(", "))),
    first && message("certificate_first"),
    canSign && needsLogin && message("certificate_needs_login"),
    notAfter && message("certificate_valid", wordsForDate(notAfter)),
  );
}

// What there is of these, with commas between.
const inOneLine = (...given) => given.filter(Boolean).flatMap((words, i) => (i === 0 ? words : [", ", ...[words].flat()]));

/**
 * A text for whoever helps, in English, without a name or number of a person, a token or a certificate, and without a path: of
 * the findings only what was looked at and how it is, of tokens and certificates only the tools' own words.
 */
export function reportOf(diagnosis, { version, browser }) {
  const findings = diagnosis.findings.map(({ level, check, browser: which }) => listed(level, [check, which]));
  const tokens = tokensOf(diagnosis).flatMap(({ hardware, offered, reason, pin, certificates }) => [
    listed("token", [hardware ? "hardware" : "software", offered ? "offered" : `not offered: ${withoutName(reason)}`, pin]),
    ...certificates.map(({ offered: isOffered, canSign, reasons }) =>
      listed("  certificate", [isOffered ? "offered" : "not offered", canSign ? "can sign" : "cannot sign", ...reasons])),
  ]);
  const head = [`Quillmark ${version}`, browser, `a signature can be made: ${diagnosis.verdict}`];
  return `${[...head, ...findings, ...tokens].join("\n")}\n`;
}

// A reason may name a module, whose file anybody may have named.
const withoutName = (reason) => reason?.replace(/\b(by the module) .*/s, "$1 …");

const listed = (what, words) => `${what}: ${words.filter(Boolean).join(", ")}`;
