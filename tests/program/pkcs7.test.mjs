// The detached PKCS#7 SignedData over the hash of a PDF.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import {
  bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, contentOf, makeSignedPdf, oddCertificate, oid, parseDer, shapeOf,
  signedDataParts,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const document = Buffer.from("a document");
const HASH_OIDS = { SHA1: "1.3.14.3.2.26", SHA256: "2.16.840.1.101.3.4.2.1", SHA384: "2.16.840.1.101.3.4.2.2",
  SHA512: "2.16.840.1.101.3.4.2.3" };

function digestOf(data, hash = "sha256") {
  return createHash(hash).update(data).digest();
}

/** Has a hash signed by the certificate, after the list was loaded with a first request. Gives the reply. */
function signDigest(host, digest, certificate, more = {}) {
  const hash = typeof digest === "string" ? digest : digest.toString("base64");
  return host.request({ action: "PdfSignFromToken", hash, certThumbPrint: certificate.thumbprint, ...more });
}

/** A host whose list is loaded and whose user is logged in. */
async function readyHost(t, script = {}, options = {}) {
  const ready = await world.hostWithFake(t, script, options);
  await chooseAndLogIn(ready.host, { action: "SignAuthToken", authToken: "x" });
  return ready;
}

test("The structure has these elements, in this order, with nothing more", async (t) => {
  const { host } = await readyHost(t);
  const certificate = await world.certificate();
  const { result } = await signDigest(host, digestOf(document), certificate);
  const { contentInfo } = await signedDataParts(bytesOf(result));
  const algorithm = ["SEQUENCE", "OBJECT", "NULL"];
  const issuer = shapeOf((await parseDer(certificate.bytes)).children[0].children[3]);
  assert.deepEqual(shapeOf(contentInfo), ["SEQUENCE", "OBJECT", ["cont [ 0 ]", ["SEQUENCE",
    "INTEGER",
    ["SET", algorithm],
    ["SEQUENCE", "OBJECT"],
    ["cont [ 0 ]", shapeOf(await parseDer(certificate.bytes))],
    ["SET", ["SEQUENCE",
      "INTEGER",
      ["SEQUENCE", issuer, "INTEGER"],
      algorithm,
      ["cont [ 0 ]",
        ["SEQUENCE", "OBJECT", ["SET", "OBJECT"]],
        ["SEQUENCE", "OBJECT", ["SET", "OCTET STRING"]]],
      algorithm,
      "OCTET STRING"]],
  ]]]);
});

test("The elements have the values of the certificate, the hash and the standard", async (t) => {
  const { host } = await readyHost(t);
  const certificate = await world.certificate();
  const digest = digestOf(document);
  const { result } = await signDigest(host, digest, certificate);
  const { contentType, version, digestAlgorithms, content, certificates, signerInfo } =
    await signedDataParts(bytesOf(result));
  const [, serial, , issuer] = (await parseDer(certificate.bytes)).children[0].children;
  const sha256 = Buffer.concat([Buffer.from("300d", "hex"), oid(HASH_OIDS.SHA256), Buffer.from("0500", "hex")]);

  assert.deepEqual(contentType.bytes, oid("1.2.840.113549.1.7.2"));
  assert.deepEqual(version.bytes, Buffer.from("020101", "hex"));
  assert.deepEqual(contentOf(digestAlgorithms), sha256);
  assert.deepEqual(contentOf(content), oid("1.2.840.113549.1.7.1"));
  assert.deepEqual(contentOf(certificates), certificate.bytes);
  const [signerVersion, issuerAndSerial, digestAlgorithm, attributes, encryption, signature] = signerInfo.children;
  assert.deepEqual(signerVersion.bytes, Buffer.from("020101", "hex"));
  assert.deepEqual(contentOf(issuerAndSerial), Buffer.concat([issuer.bytes, serial.bytes]));
  assert.deepEqual(digestAlgorithm.bytes, sha256);
  const [contentTypeAttribute, digestAttribute] = attributes.children;
  assert.deepEqual(contentOf(contentTypeAttribute), Buffer.concat([oid("1.2.840.113549.1.9.3"),
    Buffer.from("310b", "hex"), oid("1.2.840.113549.1.7.1")]));
  assert.deepEqual(contentOf(digestAttribute), Buffer.concat([oid("1.2.840.113549.1.9.4"),
    Buffer.from("31220420", "hex"), digest]));
  assert.deepEqual(contentOf(encryption), Buffer.concat([oid("1.2.840.113549.1.1.1"), Buffer.from("0500", "hex")]));
  assert.equal(contentOf(signature).length, 256);
});

test("The token signs the attributes as a SET; they stand in the structure under tag A0", async (t) => {
  const { host, token } = await readyHost(t);
  const { result } = await signDigest(host, digestOf(document), await world.certificate());
  const { in: given } = (await token.calls("C_Sign")).at(-1);
  assert.equal(given.dataLength, 77);
  assert.match(given.data, /^314b30180609/);
  const { signerInfo } = await signedDataParts(bytesOf(result));
  assert.equal(signerInfo.children[3].bytes.toString("hex"), `a0${given.data.slice(2)}`);
});

for (const hash of ["SHA256", "SHA384", "SHA512"]) {
  test(`OpenSSL accepts the signature with ${hash}`, async (t) => {
    const { host } = await readyHost(t);
    const certificate = await world.certificate();
    let content = document; // one whose digest has no zero byte: the token takes the attributes as text
    while (digestOf(content, hash).includes(0)) content = Buffer.concat([content, Buffer.from(".")]);
    const { result } = await signDigest(host, digestOf(content, hash), certificate, { hashAlgorithm: hash });
    await world.judges.cms(bytesOf(result), { content });
    await assert.rejects(world.judges.cms(bytesOf(result), { content: Buffer.from("another") }));
  });
}

test("SHA1 names its own algorithm in the structure, while the token signs with SHA-256", async (t) => {
  const { host, token } = await readyHost(t);
  const { result } = await signDigest(host, digestOf(document, "sha1"), await world.certificate(), { hashAlgorithm: "SHA-1" });
  const { digestAlgorithms } = await signedDataParts(bytesOf(result));
  assert.deepEqual(digestAlgorithms.children[0].children[0].bytes, oid(HASH_OIDS.SHA1));
  assert.equal((await token.calls("C_SignInit")).at(-1).in.mechanism, 0x40);
});

test("A PDF reader accepts the signature in a document", async (t) => {
  const { host } = await readyHost(t);
  const certificate = await world.certificate();
  const signed = await makeSignedPdf(["A contract", "between two"], async (hash) => (await signDigest(host, hash, certificate)).result);
  const report = await world.judges.pdf(signed);
  assert.match(report, /Signing Hash Algorithm: SHA-256/);
});

test("Attributes with a zero byte are signed up to it", async (t) => {
  const { host, token } = await readyHost(t);
  const digest = digestOf(document);
  digest[20] = 0;
  await signDigest(host, digest, await world.certificate());
  assert.equal((await token.calls("C_Sign")).at(-1).in.dataLength, 77 - 32 + digest.indexOf(0));
});

for (const serial of ["00", "7f", "80", "0100", "00ff00ff00ff00ff00ff00ff00ff00ff00ff00ff"]) {
  test(`The serial number ${serial} is copied byte for byte`, async (t) => {
    const certificate = await world.certificate(`serial-${serial}`, { serial });
    const { host } = await readyHost(t, { certificates: [{ certificate, id: "1" }] });
    const { result } = await signDigest(host, digestOf(document), certificate);
    const { signerInfo } = await signedDataParts(bytesOf(result));
    const [, serialOfSigner] = signerInfo.children[1].children;
    const serialOfCertificate = (await parseDer(certificate.bytes)).children[0].children[1];
    assert.deepEqual(serialOfSigner.bytes, serialOfCertificate.bytes);
  });
}

test("A version 1 certificate: its fourth element stands where the issuer should", async (t) => {
  const certificate = await oddCertificate(world.folder, "v1", { subject: { CN: "old" }, version: 1 });
  certificate.thumbprint = digestOf(certificate.bytes, "sha1").toString("hex").toUpperCase();
  const user = await world.certificate();
  const { host } = await readyHost(t, { certificates: [{ certificate: user, id: "1" }, { certificate, id: "2" }] });
  const { result, status_cd: status } = await signDigest(host, digestOf(document), certificate);
  assert.equal(status, 1);
  const { signerInfo, certificates } = await signedDataParts(bytesOf(result));
  const validity = (await parseDer(contentOf(certificates))).children[0].children[3];
  assert.deepEqual(validity.children.map(({ tag }) => tag), ["UTCTIME", "UTCTIME"]);
  assert.deepEqual(signerInfo.children[1].children[0].bytes, validity.bytes);
});

for (const hash of ["", "=", "not Base64!", "QUJD\r\nREVG", "A", "ü"]) {
  test(`The hash ${JSON.stringify(hash)} is decoded as far as it can be`, async (t) => {
    const { host } = await readyHost(t);
    const reply = await signDigest(host, hash, await world.certificate());
    assert.equal(reply.status_cd, 1);
    await parseDer(bytesOf(reply.result));
  });
}

test("A missing key is reported as it is, without a prefix", async (t) => {
  const certificate = await world.certificate("keyless");
  const user = await world.certificate();
  const { host } = await readyHost(t, { certificates: [{ certificate: user, id: "1" }, { certificate, id: "2", key: false }] });
  assert.equal((await signDigest(host, digestOf(document), certificate)).result, "QMHost Error: Private Key NOT Found");
});

test("At level DEBUG the last result lies in PKCS7Sign.txt; at any other level no file is written", async (t) => {
  const { host } = await readyHost(t);
  const certificate = await world.certificate();
  for (const content of ["one", "two, and longer", "3"]) {
    const { result } = await signDigest(host, digestOf(content, "sha384"), certificate, { hashAlgorithm: "SHA384" });
    assert.equal(await host.readFile("PKCS7Sign.txt"), result);
  }
  for (const AppLogLevel of [0, 2, 3]) {
    const { host: other } = await readyHost(t, {}, { settings: { AppLogLevel } });
    assert.equal((await signDigest(other, digestOf(document), certificate)).status_cd, 1);
    await assert.rejects(other.readFile("PKCS7Sign.txt"), { code: "ENOENT" });
  }
});

test("A certificate of CA is found by its thumbprint as well", async (t) => {
  const authority = world.authority.own;
  const user = await world.certificate();
  const { host } = await readyHost(t, { certificates: [{ certificate: authority, id: "ca" }, { certificate: user, id: "1" }] });
  assert.equal((await signDigest(host, digestOf(document), authority)).status_cd, 1);
  assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
});
