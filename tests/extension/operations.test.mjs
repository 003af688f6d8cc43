// What a page's request has to look like, and what goes to the host and into the journal for it.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import { MAX_GST_TEXT_BYTES } from "../../extension/quillmark.js";
import { certificateIn } from "../../extension/src/cms.js";
import { operationOf } from "../../extension/src/operations.js";
import "./fakes.mjs"; // gives Node.js 18 the global crypto that browsers have

const THUMBPRINT = "0123456789ABCDEF0123456789ABCDEF01234567";
const check = (operation, values) => operationOf(operation).check(values);
const fails = (operation, values, code) => assert.throws(() => check(operation, values), { name: "QuillmarkError", code });

test("A hash algorithm is taken in its usual spellings and travels in one", () => {
  for (const name of ["SHA-384", "sha384", "Sha-384"]) {
    assert.equal(check("signGstReturn", { text: "a", hashAlgorithm: name }).hashAlgorithm, "SHA-384");
  }
  assert.equal(check("signGstReturn", { text: "a" }).hashAlgorithm, "SHA-256");
});

test("A hash algorithm that the host would take for another is refused", () => {
  for (const hashAlgorithm of ["SHA1", "SHA-1", "MD5", "", "SHA-224", "SHA2-56x"]) {
    fails("signAuthToken", { authToken: "a", hashAlgorithm }, "UNSUPPORTED_HASH");
  }
});

test("A text that would not be signed as it stands is refused", () => {
  for (const text of ["", undefined, 7, "a\0b", "\uD800", "x\uDC00y"]) fails("signGstReturn", { text }, "INVALID_ARGUMENT");
  assert.equal(check("signGstReturn", { text: "₹ 1,000 😀" }).text, "₹ 1,000 😀");
});

test("A GST text is measured in UTF-8 bytes against the limit", () => {
  check("signGstReturn", { text: "a".repeat(MAX_GST_TEXT_BYTES) });
  fails("signGstReturn", { text: "a".repeat(MAX_GST_TEXT_BYTES + 1) }, "TOO_LARGE");
  fails("signGstReturn", { text: "₹".repeat(MAX_GST_TEXT_BYTES / 3 + 1) }, "TOO_LARGE");
});

test("A PDF digest has the length of its algorithm", () => {
  const hash = Buffer.alloc(32, 1).toString("base64");
  assert.equal(check("signPdfHash", { hash, certThumbPrint: THUMBPRINT }).hash, hash);
  fails("signPdfHash", { hash, certThumbPrint: THUMBPRINT, hashAlgorithm: "SHA-512" }, "INVALID_ARGUMENT");
  fails("signPdfHash", { hash: "!!!", certThumbPrint: THUMBPRINT }, "INVALID_ARGUMENT");
});

test("A PDF digest with a zero byte is refused as unsuitable", () => {
  const digest = Buffer.alloc(32, 1);
  digest[31] = 0;
  fails("signPdfHash", { hash: digest.toString("base64"), certThumbPrint: THUMBPRINT }, "DIGEST_UNSUITABLE");
});

test("A thumbprint travels in capitals and is 40 hexadecimal digits", () => {
  const hash = Buffer.alloc(32, 1).toString("base64");
  assert.equal(check("signPdfHash", { hash, certThumbPrint: THUMBPRINT.toLowerCase() }).certThumbPrint, THUMBPRINT);
  fails("signPdfHash", { hash, certThumbPrint: "12" }, "INVALID_ARGUMENT");
});

test("What is shown in a line is no book", () => {
  const long = "A".repeat(60_000_000);
  fails("signPdfHash", { hash: long, certThumbPrint: THUMBPRINT }, "INVALID_ARGUMENT");
  fails("signItReturn", { hash: long, pan: "ABCDE1234F" }, "INVALID_ARGUMENT");
  fails("signItReturn", { hash: "aGFzaA==", pan: long }, "INVALID_ARGUMENT");
});

test("An operation that does not exist is unknown, also one that every object has", () => {
  for (const operation of ["signXml", "toString", "__proto__", undefined]) fails(operation, {}, "UNKNOWN_ACTION");
});

test("Values that an operation does not have are left out", () => {
  assert.deepEqual(check("selectCertificate", { action: "SignXML", nonce: "1" }), {});
});

test("What is signed is told by its digest: a text's SHA-256, a document's own", async () => {
  const text = "₹ 1,000";
  const sha256 = createHash("sha256").update(text).digest("hex");
  assert.deepEqual(await operationOf("signGstReturn").signs({ text }), { algorithm: "SHA-256", digest: sha256 });
  assert.deepEqual(await operationOf("signAuthToken").signs({ authToken: text }), { algorithm: "SHA-256", digest: sha256 });
  const document = { hash: Buffer.alloc(64, 7).toString("base64"), hashAlgorithm: "SHA-512" };
  assert.deepEqual(await operationOf("signPdfHash").signs(document), { algorithm: "SHA-512", digest: "07".repeat(64) });
});

test("The certificate in a structure is found, and none in what is no structure", () => {
  const der = (tag, ...parts) => {
    const content = Buffer.concat(parts.map((part) => Buffer.from(part)));
    const length = content.length < 0x80 ? [content.length] : [0x82, content.length >> 8, content.length & 0xff];
    return Buffer.concat([Buffer.from([tag, ...length]), content]);
  };
  const certificate = der(0x30, Buffer.alloc(300, 5));
  const cms = der(0x30, der(6, [1]), der(0xa0, der(0x30, der(2, [1]), der(0x31), der(0x30), der(0xa0, certificate), der(0x31))));
  assert.deepEqual(Buffer.from(certificateIn(new Uint8Array(cms))), certificate);
  for (let length = 0; length < cms.length; length++) assert.equal(certificateIn(new Uint8Array(cms.subarray(0, length))), undefined);
  assert.equal(certificateIn(new Uint8Array([0x30, 0x80, 0, 0])), undefined);
});
