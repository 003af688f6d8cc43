// Tax returns and PDF digests: what a SignedData has to be to be accepted.

import assert from "node:assert/strict";
import { test } from "node:test";

import { verifyGstReturn, verifyPdfHash } from "quillmark-verify";

import { certificate, hashAlgorithm, integer, nameOf, octets, personal, sequence, withRsa } from "./lib/issuing.mjs";
import {
  attribute,
  contentType,
  der,
  digestOf,
  gstReturn,
  messageDigest,
  pdfSignature,
  people,
  signedData,
} from "./lib/signing.mjs";
import { secondsOf, verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const mallory = certificate("Mallory", { issuer: issuing });
const trust = { roots: root.der, intermediates: [issuing.pem], revocation: "none" };
const digest = digestOf("a document");

const ofReturn = (cms, more = {}) => verdictOf(verifyGstReturn({ ...trust, cms, ...more }));
const ofHash = (pkcs7, more = {}) => verdictOf(verifyPdfHash({ ...trust, pkcs7, hash: digest, ...more }));

test("A return says its text, its signer and the chain", async () => {
  const cms = gstReturn(asha, "Gewürze €").toString("base64");
  const {
    text,
    signer,
    chain,
    time,
    revocation,
    hashAlgorithm: hash,
  } = await verifyGstReturn({ ...trust, cms, text: "Gewürze €" });
  assert.deepEqual([text, hash, revocation], ["Gewürze €", "SHA-256", "unchecked"]);
  assert.deepEqual(
    [signer.name, signer.email, signer.organization, signer.serial],
    ["Asha Rao", "asha@example.com", "Quillmark Test", Buffer.from(asha.serial).toString("hex").toUpperCase()],
  );
  assert.equal(signer.thumbprint, digestOf(asha.der, "sha1").toString("hex").toUpperCase());
  assert.deepEqual(
    chain.map(({ name }) => name),
    ["Asha Rao", "Issuing", "Root"],
  );
  assert.ok(Math.abs(time - Date.now()) < 10_000);
});

for (const hash of ["sha256", "sha384", "sha512"]) {
  test(`Both kinds are accepted with ${hash}`, async () => {
    assert.equal(await ofReturn(gstReturn(asha, "a text", { hash })), "accepted");
    const digestThen = digestOf("a document", hash);
    assert.equal(
      await ofHash(pdfSignature(asha, digestThen, { hash }), {
        hash: digestThen.toString("base64"),
        hashAlgorithm: hash.toUpperCase(),
      }),
      "accepted",
    );
  });
}

test("An empty return is a return", async () => {
  assert.equal(await ofReturn(gstReturn(asha, ""), { text: "" }), "accepted");
});

test("Another text or digest than the expected one is no match", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text"), { text: "a texT" }), "CONTENT_MISMATCH");
  assert.equal(await ofHash(pdfSignature(asha, digestOf("another"))), "CONTENT_MISMATCH");
  assert.equal(await ofHash(pdfSignature(asha, digest), { hash: digest.subarray(0, 20) }), "CONTENT_MISMATCH");
  assert.equal(await ofHash(pdfSignature(asha, digest), { hashAlgorithm: "SHA-512" }), "CONTENT_MISMATCH");
});

test("Another content or another key than the signature's is not accepted", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text", { signed: Buffer.from("another") })), "SIGNATURE_INVALID");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { key: mallory.privateKey })), "SIGNATURE_INVALID");
  assert.equal(await ofHash(pdfSignature(asha, digest, { key: mallory.privateKey })), "SIGNATURE_INVALID");
});

test("The signature of one kind is not taken for the other", async () => {
  assert.equal(await ofReturn(pdfSignature(asha, digest)), "MALFORMED");
  assert.equal(await ofHash(gstReturn(asha, "a document")), "MALFORMED");
  assert.equal(await ofHash(gstReturn(asha, "a document", { attributes: [contentType(), messageDigest(digest)] })), "MALFORMED");
  assert.equal(
    await ofReturn(gstReturn(asha, "a text", { attributes: [contentType(), messageDigest(digestOf("a text"))] })),
    "MALFORMED",
  );
});

test("A PDF's signed attributes are not taken for a text that was signed", async () => {
  const attributes = der(0x31, contentType(), messageDigest(digest));
  assert.equal(await ofReturn(signedData(asha, { content: attributes })), "CONTENT_MISMATCH");
});

test("A login's challenge is not taken for a return", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "Log in to https://example.com\nat 2026-11-22T00:00:00.000Z")), "CONTENT_MISMATCH");
});

test("Signed attributes without a digest or a content type, with another, or with two are not accepted", async () => {
  const other = messageDigest(digestOf("another"));
  const cases = [
    [[contentType()], "MALFORMED"],
    [[messageDigest(digest)], "MALFORMED"],
    [[], "MALFORMED"],
    [[contentType("1.2.840.113549.1.7.5"), messageDigest(digest)], "MALFORMED"],
    [[contentType(), other], "CONTENT_MISMATCH"],
    [[contentType(), messageDigest(digest), messageDigest(digest)], "MALFORMED"],
    [[contentType(), messageDigest(digest), other], "MALFORMED"],
    [[contentType(), contentType(), messageDigest(digest)], "MALFORMED"],
    [[contentType(), attribute("1.2.840.113549.1.9.4", octets(digest), octets(digest))], "MALFORMED"],
    [[contentType(), attribute("1.2.840.113549.1.9.4", integer(digest))], "MALFORMED"],
  ];
  for (const [i, [attributes, verdict]] of cases.entries())
    assert.equal(await ofHash(pdfSignature(asha, digest, { attributes })), verdict, `case ${i}`);
});

test("A signed attribute that names the certificate has to name this one", async () => {
  const named = (type, ...parts) => attribute(type, sequence(sequence(sequence(...parts))));
  const v1 = (bytes) => named("1.2.840.113549.1.9.16.2.12", octets(digestOf(bytes, "sha1")));
  const v2 = (bytes, hash = null) =>
    named("1.2.840.113549.1.9.16.2.47", ...(hash ? [hashAlgorithm(hash)] : []), octets(digestOf(bytes, hash ?? "sha256")));
  const withIt = (one) => ofHash(pdfSignature(asha, digest, { attributes: [contentType(), messageDigest(digest), one] }));
  for (const make of [v1, v2, (bytes) => v2(bytes, "sha512")]) {
    assert.equal(await withIt(make(asha.der)), "accepted");
    assert.equal(await withIt(make(mallory.der)), "SIGNATURE_INVALID");
  }
});

test("SHA-1 and MD5 are not accepted, whatever was hashed with them", async () => {
  for (const hash of ["sha1", "md5"]) {
    assert.equal(await ofReturn(gstReturn(asha, "a text", { hash })), "WEAK_ALGORITHM");
    assert.equal(await ofReturn(gstReturn(asha, "a text", { hash, signedHash: "sha256" })), "WEAK_ALGORITHM");
    assert.equal(await ofReturn(gstReturn(asha, "a text", { listedHash: hash })), "WEAK_ALGORITHM");
    assert.equal(await ofReturn(gstReturn(asha, "a text", { signedHash: hash, algorithm: withRsa(hash) })), "WEAK_ALGORITHM");
    assert.equal(await ofHash(pdfSignature(asha, digestOf("a document", hash), { hash })), "WEAK_ALGORITHM");
  }
});

test("The places that name the hash algorithm have to name the same", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text", { algorithm: withRsa("sha256") })), "accepted");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { algorithm: withRsa("sha512") })), "SIGNATURE_INVALID");
  assert.equal(
    await ofReturn(gstReturn(asha, "a text", { algorithm: withRsa("sha512"), signedHash: "sha512" })),
    "SIGNATURE_INVALID",
  );
  assert.equal(await ofReturn(gstReturn(asha, "a text", { listedHash: "sha512" })), "SIGNATURE_INVALID");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { signedHash: "sha512" })), "SIGNATURE_INVALID");
});

test("Two signers, or none, are not accepted", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text", { signers: (one) => [one, one] })), "MALFORMED");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { signers: () => [] })), "MALFORMED");
});

test("Certificates beside the signer's make a chain, or do nothing", async () => {
  const alone = { roots: root.der, revocation: "none" };
  const withChain = gstReturn(asha, "a text", { certificates: [mallory, issuing, asha, root] });
  assert.equal((await verifyGstReturn({ ...alone, cms: withChain })).signer.name, "Asha Rao");
  assert.equal(await verdictOf(verifyGstReturn({ ...alone, cms: gstReturn(asha, "a text") })), "CERTIFICATE_UNTRUSTED");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { certificates: [asha, asha] })), "accepted");
  const many = Array.from({ length: 21 }, () => asha);
  assert.equal(await ofReturn(gstReturn(asha, "a text", { certificates: many })), "MALFORMED");
});

test("The signer's certificate has to be there, and only one may be by its issuer and number", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text", { certificates: [] })), "MALFORMED");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { certificates: [mallory] })), "MALFORMED");
  assert.equal(await ofReturn(gstReturn({ ...asha, issuerName: nameOf("Another") }, "a text")), "MALFORMED");
  const twin = certificate("Twin", { issuer: issuing, serial: asha.serial });
  for (const certificates of [
    [asha, twin],
    [twin, asha],
  ])
    assert.equal(await ofReturn(gstReturn(asha, "a text", { certificates })), "MALFORMED");
});

test("Another person's certificate, with the signer's own in the midst of it, is not taken for the signer's", async () => {
  // Node's class for certificates reads PEM in the midst of DER.
  const more = [sequence(Buffer.from("0603550101", "hex"), octets(Buffer.from(`\n${asha.pem}`)))];
  const forged = certificate("Forged", {
    issuer: issuing,
    signedBy: mallory.privateKey,
    keyLabel: "Asha Rao",
    extensions: personal({ more }),
  });
  assert.equal(await ofReturn(gstReturn(forged, "a text", { key: asha.privateKey })), "MALFORMED");
});

test("A version, content type or structure of another kind is not accepted", async () => {
  assert.equal(await ofReturn(gstReturn(asha, "a text", { version: 5 })), "MALFORMED");
  assert.equal(await ofReturn(gstReturn(asha, "a text", { type: "1.2.840.113549.1.7.5" })), "MALFORMED");
  const whole = gstReturn(asha, "a text");
  assert.equal(await ofReturn(Buffer.concat([whole, Buffer.from([0])])), "MALFORMED");
  const withLongerHead = Buffer.concat([Buffer.from([0x30, 0x84, 0, 0]), whole.subarray(2)]); // the length in two bytes more
  assert.equal(await ofReturn(withLongerHead), "MALFORMED");
  assert.equal(await ofReturn(asha.der), "MALFORMED");
  assert.equal(await ofReturn(Buffer.alloc(0)), "MALFORMED");
  assert.equal(await ofReturn("no Base64!"), "MALFORMED");
  const inPieces = (content) => der(0x24, octets(content.subarray(0, 2)), octets(content.subarray(2)));
  assert.equal(await ofReturn(gstReturn(asha, "a text", { contentElement: inPieces })), "MALFORMED");
});

test("Gigantic lengths and deep nesting are refused at once", async () => {
  const deep = (count, head) => Buffer.concat(Array.from({ length: count }, () => Buffer.from(head)));
  const nested = nestedTo(20_000);
  const cases = [
    Buffer.from("3084ffffffff", "hex"),
    Buffer.from("3088ffffffffffffffff", "hex"),
    Buffer.from("30ff", "hex"),
    deep(300_000, [0x30, 0x80]),
    nested,
    deep(400_000, [5, 0]),
    der(0x30, deep(400_000, [5, 0])),
    Buffer.from("1fffffffffffff", "hex"),
    Buffer.alloc(900_000, 0x30),
    Buffer.alloc(2_000_000),
  ];
  const seconds = await secondsOf(async () => {
    for (const cms of cases) assert.equal(await ofReturn(cms), "MALFORMED");
  });
  assert.ok(seconds < 4, `${seconds} s`);
  const deepWithin = personal({ more: [sequence(Buffer.from("0603551d1e", "hex"), octets(nested))] });
  assert.equal(await ofReturn(gstReturn(certificate("Deep", { issuer: issuing, extensions: deepWithin }), "a text")), "MALFORMED");
});

/** Sequences in sequences, so many. */
function nestedTo(depth) {
  const heads = [];
  let length = 0;
  for (let i = 0; i < depth; i++) {
    heads.unshift(length < 0x80 ? [0x30, length] : [0x30, 0x83, length >> 16, (length >> 8) & 255, length & 255]);
    length += heads[0].length;
  }
  return Buffer.from(heads.flat());
}

test("What the caller does wrongly has a code of its own", async () => {
  const cms = gstReturn(asha, "a text");
  const wrong = [
    {},
    { roots: [] },
    { roots: "nonsense" },
    { ...trust, revocation: "maybe" },
    { ...trust, at: "never" },
    { ...trust, text: 5 },
    { ...trust, fetch: "http" },
    { ...trust, cms: undefined },
    { ...trust, cms: 7 },
    { ...trust, text: "\ud800" },
    { ...trust, intermediates: [Buffer.from("no")] },
  ];
  for (const options of wrong)
    assert.equal(await verdictOf(verifyGstReturn({ cms, ...options })), "INVALID_ARGUMENT", JSON.stringify(Object.keys(options)));
  assert.equal(await verdictOf(verifyGstReturn()), "INVALID_ARGUMENT");
});
