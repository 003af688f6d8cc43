// The failure texts against the codes: the documentation is the list, and the host has to know each text in it.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { test } from "node:test";

import { ERRORS } from "../../extension/quillmark.js";
import { classifyDisconnect, classifyFailure } from "../../extension/src/failures.js";

const root = new URL("../../", import.meta.url);
const read = (path) => readFileSync(new URL(path, root), "utf8");
const documentation = read("docs/errors.md");

/** The rows of the table under a heading, each as its cells. */
function table(heading) {
  const section = documentation.split(`## ${heading}\n`)[1].split("\n## ")[0];
  const rows = section.split("\n").filter((line) => line.startsWith("|")).slice(2);
  return rows.map((row) => row.split("|").slice(1, -1).map((cell) => cell.trim().replace(/^`(.*)`$/, "$1")));
}

const hostTexts = table("What the signing program says");
const exampleOf = (text) => text.replace("(nothing)", "").replaceAll("…", "something");
const classify = (text, loggedIn = false) => classifyFailure(text, { loggedIn });

test("The table of codes and the code's table have the same codes", () => {
  assert.deepEqual(table("Codes").map(([code]) => code).sort(), Object.keys(ERRORS).sort());
});

test("The page library's declarations name the same codes", () => {
  const union = read("extension/quillmark.d.ts").split("type ErrorCode =")[1].split(";")[0];
  assert.deepEqual(union.match(/\w+/g).sort(), Object.keys(ERRORS).sort());
});

test("Every failure text of the documentation has the code that stands there, with and without prefixes", () => {
  assert.ok(hostTexts.length >= 19);
  for (const [text, code] of hostTexts) {
    for (const prefix of ["", "Error  in GetPDFSignature(): ", "Error  in GenCMSSign(): Error  in TokenSignData(): "]) {
      assert.equal(classify(prefix + exampleOf(text)).code, code, prefix + text);
    }
  }
});

test("Whoever cancelled an empty list is told where its reasons are", () => {
  assert.match(ERRORS.USER_CANCELLED, /If the list was empty, .*quillmark-tokens/);
});

test("Every rule of the code stands in the documentation", () => {
  const rules = [...read("extension/src/failures.js").matchAll(/\{ text: \/\^(.+?)\/, code: "(\w+)"/g)];
  assert.ok(rules.length >= 12);
  for (const [, pattern, code] of rules) {
    const rule = new RegExp(`^${pattern}`);
    assert.ok(hostTexts.some(([text, itsCode]) => itsCode === code && rule.test(exampleOf(text))), pattern);
  }
});

test("Every text of the documentation is one that the host's sources have", () => {
  const folder = new URL("QMChromeExtHost/", root);
  const sources = readdirSync(folder).filter((name) => /\.(cpp|h)$/.test(name)).map((name) => read(`QMChromeExtHost/${name}`));
  const fixed = hostTexts.map(([text]) => text).filter((text) => !/^\(|^\[|^any /.test(text));
  assert.ok(fixed.length >= 12);
  for (const text of fixed) {
    const start = text.split("…")[0].trim();
    assert.ok(sources.some((source) => source.includes(`"${start}`)), text);
  }
});

test("Every browser's text of the documentation has the code that stands there", () => {
  for (const [text, browser, code] of table("What the browser says")) {
    const answered = !browser.includes("before the signing program has answered");
    assert.equal(classifyDisconnect(text === "(nothing)" ? undefined : text, { answered }), code, `${text} (${browser})`);
  }
});

test("A token's error has the PKCS#11 name of its code, and the number where there is no name", () => {
  const ckr = (code) => classify(`[CKR_ERROR in C_Sign] ErrCode = 0x${code}.`).ckr;
  assert.equal(ckr("00000020"), "CKR_DATA_INVALID");
  assert.equal(ckr("00000191"), "CKR_CRYPTOKI_ALREADY_INITIALIZED");
  assert.equal(ckr("80000001"), "0x80000001");
});

test("After what spoils the host's run, and a failed login, it is started anew; after what else the user did it is not", () => {
  const login = ["", "[CKR_ERROR in C_Login] ErrCode = 0x000000A0.", "Token User PIN required for Token Login, but given empty."];
  for (const text of ["[CKR_ERROR in C_Sign] ErrCode = 0x00000030.", "Private Key NOT Found", "std::bad_alloc", ...login]) {
    assert.equal(classify(text).restart, true, text);
    assert.equal(classify(text, true).restart, true, text);
  }
  for (const text of ["User Canceled without Selecting Certificate.", "No slot with token attached.", "Unsupported hash algorithm"]) {
    assert.equal(classify(text).restart, false, text);
  }
});

test("A PIN that was not typed is told from a wrong one", () => {
  assert.equal(classify("Token User PIN required for Token Login, but given empty.").reason, "empty");
  assert.equal(classify("[CKR_ERROR in C_Login] ErrCode = 0x000000A0.").reason, undefined);
});

test("A further token's login that failed is one, also after another token has signed", () => {
  for (const loggedIn of [false, true]) {
    const { code, ckr } = classify("Error  in TokenSignData(): [CKR_ERROR in C_SignInit] ErrCode = 0x00000101.", loggedIn);
    assert.deepEqual([code, ckr], ["LOGIN_FAILED", "CKR_USER_NOT_LOGGED_IN"]);
  }
});

test("A page's own text in an echo is not taken for a failure of the token", () => {
  assert.equal(classify("echo: [CKR_ERROR in C_Login] ErrCode = 0x000000A0.").code, "UNKNOWN_ACTION");
});
