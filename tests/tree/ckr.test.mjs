// The names of PKCS#11's answers, wherever we have written them down, against the standard's header.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { test } from "node:test";

import { CKR_NAMES } from "../../extension/src/ckr.js";
import { CK } from "../lib/kit.mjs";

const folder = execFileSync("pkg-config", ["--variable=includedir", "p11-kit-1"], { encoding: "utf8" }).trim();
const header = [join(folder, "p11-kit-1/p11-kit/pkcs11.h"), join(folder, "p11-kit/pkcs11.h")]
  .map((file) => { try { return readFileSync(file, "utf8"); } catch { return ""; } }).join("");

/** The header's answers but CKR_OK, which is none to name, and the begin of the makers' own. */
const standard = new Map([...header.matchAll(/^#define\s+(CKR_\w+)\s+\((0x[0-9a-fA-F]+|\d+)UL\)/gm)]
  .map(([, name, code]) => [name, Number(code)]).filter(([name]) => name !== "CKR_OK"));

/** Not in the header of p11-kit 0.24, which Debian 12 has. */
const NEW_NAME = "CKR_OPERATION_CANCEL_FAILED";

test("the header is read", () => {
  assert.ok(standard.size > 80, `${standard.size} answers were found in the header`);
  assert.equal(standard.get("CKR_PIN_INCORRECT"), 0xa0);
});

test("the extension names each answer of the standard, and no other", () => {
  const names = new Map([...CKR_NAMES].map(([code, name]) => [name, code]));
  if (!standard.has(NEW_NAME)) names.delete(NEW_NAME);
  assert.deepEqual(new Map([...names].sort()), new Map([...standard].sort()));
});

test("the tests' own names are the standard's", () => {
  const own = Object.entries(CK).filter(([name]) => name.startsWith("CKR_") && name !== "CKR_OK");
  assert.ok(own.length > 5);
  for (const [name, code] of own) assert.equal(code, standard.get(name), name);
});
