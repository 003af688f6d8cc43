// What the extension makes of the doctor's findings.

import assert from "node:assert/strict";
import { test } from "node:test";

import { reportOf, tokensOf, wordsForCertificate, wordsForToken } from "../../extension/doctor/report.js";
import "./catalogue.mjs";

const SECRETS = ["Asha Rao", "CN=Asha Rao, O=Rao & Sons", "4f2a1bc9", "9B11C2D3", "00A1", "/home/user/token.so", "HYP-7788", "asha-module"];
const [LABEL, SUBJECT, SERIAL, THUMBPRINT, ID, PATH, MODEL, MODULE] = SECRETS;

const CERTIFICATE = {
  id: ID, offered: true, canSign: true, first: true, needsLogin: true, reasons: [], subject: SUBJECT, issuer: SUBJECT,
  serialNumber: SERIAL, thumbprint: THUMBPRINT, notBefore: "2026-01-01T00:00:00Z", notAfter: "2028-01-01T00:00:00Z",
};
const EXPIRED = { ...CERTIFICATE, offered: true, canSign: false, first: false, reasons: ["expired"] };
const TOKEN = {
  label: LABEL, manufacturer: LABEL, model: MODEL, serialNumber: SERIAL, hardware: true, offered: true, pin: "one try is left",
  certificateCount: 2, certificates: [CERTIFICATE, EXPIRED],
};
const DIAGNOSIS = {
  verdict: "can",
  findings: [
    { check: "tokens", level: "ok", text: `${SUBJECT} on "${LABEL}" can sign`, remedy: null, command: null, browser: null },
    { check: "folder", level: "warning", text: `${PATH} cannot be written`, remedy: null, command: `chmod u+w '${PATH}'`, browser: "Chromium" },
  ],
  tokens: { canSign: 1, modules: [
    { name: MODULE, path: PATH, used: true, slots: [{ description: LABEL, token: TOKEN }, { description: LABEL }] },
    { name: MODULE, path: PATH, used: true, slots: [
      { description: LABEL, token: { ...TOKEN, offered: false, reason: `it is offered by the module ${MODULE}\n${LABEL}`, certificates: [] } },
    ] },
    { name: "p11-kit-trust", path: PATH, used: true, slots: [{ description: LABEL, token: { ...TOKEN, offered: false } }] },
    { name: MODULE, path: PATH, used: false, reason: `it cannot be loaded: ${PATH}`, slots: [] },
  ] },
};

test("A report for others tells what was found, and holds no name, number or path of a person, token or file", () => {
  const report = reportOf(DIAGNOSIS, { version: "1.0.0", browser: "Mozilla/5.0" });
  assert.equal(report, [
    "Quillmark 1.0.0",
    "Mozilla/5.0",
    "a signature can be made: can",
    "ok: tokens",
    "warning: folder, Chromium",
    "token: hardware, offered, one try is left",
    "  certificate: offered, can sign",
    "  certificate: offered, cannot sign, expired",
    "token: hardware, not offered: it is offered by the module …, one try is left",
    "",
  ].join("\n"));
  for (const secret of SECRETS) assert.ok(!report.includes(secret), secret);
});

const inEnglish = (words) => words.filter((piece) => typeof piece !== "string").map(({ english }) => english);
const textOf = (words) => words.map((piece) => piece.english ?? piece).join("");

test("Tokens and certificates are told with the tries that are left, and with the reason why one is not offered", () => {
  const [token] = tokensOf(DIAGNOSIS);
  assert.equal(textOf(wordsForToken(token)), `${MODEL}, serial number ${SERIAL}, its PIN: one try is left, offered`);
  assert.equal(textOf(wordsForToken({ offered: false, reason: "not enabled for QMTokenDriver" })), "not offered: not enabled for QMTokenDriver");
  assert.match(textOf(wordsForCertificate(CERTIFICATE)), /^can sign, the first in the window, as far as can be seen without the PIN, valid until /);
  assert.match(textOf(wordsForCertificate(EXPIRED)), /^offered, but cannot sign: expired, valid until /);
  assert.equal(textOf(wordsForCertificate({ offered: false, canSign: false, reasons: ["it cannot be read"] })), "not offered: it cannot be read");
  assert.deepEqual(inEnglish(wordsForToken(token)), ["one try is left"], "what the tool says is marked as English");
});

test("A computer whose tokens could not be listed has a report without tokens", () => {
  assert.deepEqual(tokensOf({ tokens: null }), []);
  assert.match(reportOf({ verdict: "unknown", findings: [], tokens: null }, { version: "1", browser: "b" }), /can be made: unknown\n$/);
});
