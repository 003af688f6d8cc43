// PDF files: which signatures are found in them, and over what they are.

import assert from "node:assert/strict";
import { test } from "node:test";

import { verifyPdf } from "quillmark-verify";

import { certificate } from "./lib/issuing.mjs";
import { contentType, digestOf, messageDigest, pdfSignature, people, signAgain, signedPdf } from "./lib/signing.mjs";
import { secondsOf, verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const ravi = certificate("Ravi", { issuer: issuing });
const trust = { roots: root.der, intermediates: issuing.der, revocation: "none" };
const signaturesOf = async (pdf, more = {}) => (await verifyPdf({ ...trust, pdf, ...more })).signatures;
const ofPdf = (pdf, more) => verdictOf(signaturesOf(pdf, more));

const signed = signedPdf(asha);
const APPENDED = Buffer.from("\n3 0 obj\n<< >>\nendobj\n");

/** The file with a text in another's place, of the same length. */
function changed(pdf, from, to) {
  assert.equal(from.length, to.length);
  const at = pdf.indexOf(from);
  assert.notEqual(at, -1, `no ${from}`);
  return Buffer.concat([pdf.subarray(0, at), Buffer.from(to), pdf.subarray(at + to.length)]);
}

for (const hash of ["sha256", "sha384", "sha512"]) {
  test(`A file signed with ${hash} is accepted, and says who has signed it`, async () => {
    const pdf = signedPdf(asha, { hash });
    const [{ signer, coversWholeFile, byteRange, hashAlgorithm, timestamp }, ...more] = await signaturesOf(pdf);
    assert.deepEqual(
      [signer.name, coversWholeFile, hashAlgorithm, timestamp, more.length],
      ["Asha Rao", true, hash.toUpperCase().replace("SHA", "SHA-"), null, 0],
    );
    assert.equal(byteRange[2] + byteRange[3], pdf.length);
  });
}

test("Bytes may come as a part of a larger buffer", async () => {
  const larger = Buffer.concat([Buffer.from("before"), signed, Buffer.from("behind")]);
  assert.equal(await ofPdf(larger.subarray(6, 6 + signed.length)), "accepted");
  assert.equal(await ofPdf(new Uint8Array(signed).buffer), "accepted");
});

test("A file without a signature has none", async () => {
  assert.equal(await ofPdf(Buffer.from("%PDF-1.7\n")), "NOT_SIGNED");
  assert.equal(await ofPdf(Buffer.alloc(0)), "NOT_SIGNED");
});

test("A file that was changed anywhere is another one", async () => {
  assert.equal(await ofPdf(changed(signed, "/Catalog", "/CatalOg")), "CONTENT_MISMATCH");
  assert.equal(await ofPdf(changed(signed, "%%EOF", "%%EOT")), "CONTENT_MISMATCH");
});

test("What is added behind the last signature is told of, or refused", async () => {
  for (const more of [APPENDED, Buffer.from("\n"), Buffer.from([0])]) {
    const pdf = Buffer.concat([signed, more]);
    assert.equal(await ofPdf(pdf), "CONTENT_APPENDED");
    const [{ coversWholeFile }] = await signaturesOf(pdf, { allowAppended: true });
    assert.equal(coversWholeFile, false);
  }
});

test("Of two signatures both have to hold, and only the later one covers the whole file", async () => {
  const twice = signAgain(ravi, Buffer.concat([signed, APPENDED]));
  assert.deepEqual(
    (await signaturesOf(twice)).map(({ signer, coversWholeFile }) => [signer.name, coversWholeFile]),
    [
      ["Asha Rao", false],
      ["Ravi", true],
    ],
  );
  assert.equal(await ofPdf(Buffer.concat([twice, APPENDED])), "CONTENT_APPENDED");
  assert.equal(await ofPdf(signAgain(ravi, changed(signed, "/Catalog", "/CatalOg"))), "CONTENT_MISMATCH");
  const stranger = certificate("Stranger");
  assert.equal(await ofPdf(signAgain(stranger, signed)), "CERTIFICATE_UNTRUSTED");
  assert.equal(await ofPdf(signAgain(ravi, signedPdf(stranger))), "CERTIFICATE_UNTRUSTED");
});

test("A byte range that is not the file but the signature's place is refused", async () => {
  const withRange = (rangeOf) => ofPdf(signedPdf(asha, { rangeOf }));
  const cases = [
    ([a, b, c, d]) => [a + 1, b, c, d],
    ([a, b, c, d]) => [a, b - 1, c, d],
    ([a, b, c, d]) => [a, b, c + 1, d - 1],
    ([a, b, c, d]) => [a, b, c, d + 1],
    ([a, b, c, d]) => [a, b - 50, c, d],
    ([a, b, c, d]) => [a, b + 2, c, d],
    ([a, b, c, d]) => [a, c, b, d],
    ([a, , c, d]) => [a, c, c, d],
    ([a, b, c, d]) => [a, b, c, d, 0],
    ([a, b, c]) => [a, b, c],
    ([a, b, c]) => [a, b, c, 9_999_999_999],
    ([a, b, c]) => [a, b, c, "-1"],
    () => [0, 1, 2, 3],
    () => [0, 0, 0, 0],
    () => ["12", "0", "R"],
  ];
  for (const [i, rangeOf] of cases.entries()) assert.equal(await withRange(rangeOf), "MALFORMED", `case ${i}`);
  assert.equal(await withRange(([a, b, c, d]) => [a, b, c, d - 1]), "CONTENT_MISMATCH");
});

test("A signature that is moved to other byte ranges does not hold there", async () => {
  const [
    {
      byteRange: [, gap, behind],
    },
  ] = await signaturesOf(signed);
  const hole = signed.subarray(gap, behind);
  const covered = Buffer.concat([signed.subarray(0, gap), signed.subarray(behind)]);
  // The same bytes around another place of the hole, told by a range of their own.
  const elsewhere = Buffer.concat([
    covered,
    Buffer.from(`\n/ByteRange [0 ${covered.length + 60} ${covered.length + 60 + hole.length} 0]`.padEnd(49)),
    Buffer.from("/Contents  "),
    hole,
  ]);
  assert.notEqual(await ofPdf(elsewhere, { allowAppended: true }), "accepted");
  const other = signedPdf(asha, { text: "%PDF-1.7\n1 0 obj\n<< /Type /CatalOg >>\nendobj\n" });
  assert.equal(await ofPdf(Buffer.concat([other.subarray(0, gap), hole, other.subarray(behind)])), "CONTENT_MISMATCH");
});

test("A second range over the same bytes is refused", async () => {
  const withComment = (range) => signedPdf(asha, { text: `%PDF-1.7\n% ${range.padEnd(60)}\n` });
  const [{ byteRange }] = await signaturesOf(withComment(""));
  assert.equal(await ofPdf(withComment(`/ByteRange [${byteRange.join(" ")}]`)), "MALFORMED");
});

test("A range that the signature is not over is refused: its signer has not said it", async () => {
  const [front, tail] = [Buffer.from("%PDF-1.7\n/Contents "), Buffer.from("\n%%EOF\n")];
  const hole = `<${pdfSignature(asha, digestOf(Buffer.concat([front, tail]))).toString("hex")}>`;
  const range = `/ByteRange [0 ${front.length} ${front.length + hole.length} ${tail.length}]`;
  const pdf = Buffer.concat([front, Buffer.from(hole), tail, Buffer.from(range)]);
  assert.equal(await ofPdf(pdf, { allowAppended: true }), "MALFORMED");
});

test("In the hole is nothing but the signature and zeros", async () => {
  const [
    {
      byteRange: [, gap, behind],
    },
  ] = await signaturesOf(signed);
  const withHole = (text) => ofPdf(Buffer.concat([signed.subarray(0, gap), Buffer.from(text), signed.subarray(behind)]));
  const hole = signed.toString("latin1", gap, behind);
  assert.equal(await withHole(hole), "accepted");
  assert.equal(await withHole(hole.toUpperCase()), "accepted");
  const cases = [
    hole.replace(/00>$/, "01>"),
    hole.replace(/00>$/, "  >"),
    hole.replace(/0>$/, ">0"),
    hole.replace(/00>$/, ")>>"),
    hole.replace("<3", "(3"),
    hole.replace(/^<30/, "<%0"),
    `<${"0".repeat(hole.length - 2)}>`,
    `<${"30".repeat(hole.length / 2 - 1)}>`,
  ];
  for (const [i, each] of cases.entries()) assert.equal(await withHole(each), "MALFORMED", `case ${i}`);
});

test("The hole is the value of a signature's Contents", async () => {
  assert.equal(await ofPdf(signedPdf(asha, { entry: "/Contents\n" })), "accepted");
  for (const entry of ["/Cert ", "/Contents %\n", "/Contents 1 "])
    assert.equal(await ofPdf(signedPdf(asha, { entry })), "MALFORMED");
});

test("A signature that is no detached one over a digest is refused", async () => {
  assert.equal(await ofPdf(signedPdf(asha, { attributes: null, signed: Buffer.from("a text") })), "MALFORMED");
  assert.equal(await ofPdf(signedPdf(asha, { attributes: [contentType()] })), "MALFORMED");
  assert.equal(await ofPdf(signedPdf(asha, { attributes: [contentType(), messageDigest(digestOf("other"))] })), "CONTENT_MISMATCH");
  assert.equal(await ofPdf(signedPdf(asha, { content: Buffer.from("a text") })), "MALFORMED");
  assert.equal(await ofPdf(signedPdf(asha, { hash: "sha1" })), "WEAK_ALGORITHM");
  assert.equal(await ofPdf(signedPdf(asha, { key: ravi.privateKey })), "SIGNATURE_INVALID");
});

test("A text about byte ranges is not passed over", async () => {
  assert.equal(await ofPdf(signedPdf(asha, { text: "%PDF-1.7\n% a /ByteRange says what is signed\n" })), "MALFORMED");
});

test("Many signatures, and long files, end soon", async () => {
  const many = Buffer.from("/ByteRange [0 1 2 3]\n".repeat(200_000));
  const long = Buffer.alloc(50_000_000, "/ByteRang");
  let pdf = signedPdf(asha, { hole: 4000 });
  for (let i = 0; i < 9; i++) pdf = signAgain(asha, pdf, { hole: 4000 });
  const seconds = await secondsOf(async () => {
    assert.equal(await ofPdf(many), "MALFORMED");
    assert.equal(await ofPdf(long), "NOT_SIGNED");
    assert.equal((await signaturesOf(pdf)).length, 10);
  });
  assert.ok(seconds < 4, `${seconds} s`);
});

test("A text is no file", async () => {
  assert.equal(await ofPdf("JVBERi0="), "INVALID_ARGUMENT");
});

test("The digest of another file does not make this one signed", async () => {
  const signature = pdfSignature(asha, digestOf("another file"));
  const [
    {
      byteRange: [, gap, behind],
    },
  ] = await signaturesOf(signed);
  const hole = `<${signature.toString("hex").padEnd(behind - gap - 2, "0")}>`;
  assert.equal(
    await ofPdf(Buffer.concat([signed.subarray(0, gap), Buffer.from(hole), signed.subarray(behind)])),
    "CONTENT_MISMATCH",
  );
});
