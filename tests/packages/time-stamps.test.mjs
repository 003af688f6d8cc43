// Time stamps in a PDF's signature: which count, and what for.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import { verifyPdfHash } from "quillmark-verify";

import { TimeStampAuthority } from "../extension/pdf/time-stamps.mjs";
import { Authority, oid, parseDer } from "../lib/kit.mjs";
import {
  authority,
  certificate,
  constraints,
  context,
  crl,
  DAY,
  extension,
  hashAlgorithm,
  inDays,
  integer,
  octets,
  personal,
  purposes,
  sequence,
} from "./lib/issuing.mjs";
import { scratch } from "./lib/scratch.mjs";
import { attribute, contentType, der, digestOf, messageDigest, pdfSignature, people, signedData } from "./lib/signing.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const TST_INFO = "1.2.840.113549.1.9.16.1.4";
const TIME_STAMPING = "1.3.6.1.5.5.7.3.8";
const MINUTE = DAY / 1440;

const { root, issuing, asha } = people();
const stampRoot = authority("Stamp root", { to: inDays(300) });
const stampAuthority = (more = {}) =>
  certificate("Stamps", {
    issuer: stampRoot,
    to: inDays(300),
    extensions: [constraints(false), purposes([TIME_STAMPING], { critical: true })],
    ...more,
  });
const digest = digestOf("a document");
const trust = { roots: root.der, intermediates: issuing.der, timestampRoots: stampRoot.der, revocation: "none" };

/** A token over a signature (RFC 3161, section 2.4.2). */
function token(
  signature,
  { by = stampAuthority(), time = inDays(0), hash = "sha256", stamped = signature, extensions = [], ...more } = {},
) {
  const at = der(0x18, Buffer.from(time.toISOString().replace(/[-:T]|\.\d+/g, "")));
  const imprint = octets(createHash(hash).update(stamped).digest());
  const info = sequence(integer([1]), oid("1.2.3.4.1"), sequence(hashAlgorithm(hash), imprint), integer([7]), at, ...extensions);
  const attributes = [contentType(TST_INFO), messageDigest(digestOf(info))];
  return signedData(by, { content: info, attributes, type: TST_INFO, version: 3, ...more });
}

const stamp = (...tokens) => attribute("1.2.840.113549.1.9.16.2.14", ...tokens);
const stampedBy = (more, signer = asha) =>
  pdfSignature(signer, digest, { unsigned: [(signature) => stamp(token(signature, more))] });
const verified = (pkcs7, more = {}) => verifyPdfHash({ ...trust, pkcs7, hash: digest, ...more });
const verdict = (pkcs7, more) => verdictOf(verified(pkcs7, more));

test("A time stamp says its time and its authority, which is trusted where a root is given for it", async () => {
  const pkcs7 = stampedBy({});
  const { timestamp, time } = await verified(pkcs7);
  assert.deepEqual(
    [timestamp.trusted, timestamp.authority.name, timestamp.chain.map(({ name }) => name)],
    [true, "Stamps", ["Stamps", "Stamp root"]],
  );
  assert.ok(Math.abs(timestamp.time - Date.now()) < 10_000);
  assert.deepEqual(time, timestamp.time);
  const untrusted = await verified(pkcs7, { timestampRoots: undefined });
  assert.deepEqual([untrusted.timestamp.trusted, untrusted.timestamp.chain], [false, []]);
  assert.notDeepEqual(untrusted.time, untrusted.timestamp.time);
});

test("A token that openssl has made is read, and holds", async (t) => {
  const { folder, file } = await scratch(t);
  const certifying = await Authority.create(folder);
  const stamps = await TimeStampAuthority.create({ folder, file, authority: certifying });
  const bare = pdfSignature(asha, digest);
  const signature = (await parseDer(bare)).children[1].children[0].children.at(-1).children[0].children.at(-1);
  const imprint = digestOf(signature.bytes.subarray(signature.header));
  const request = sequence(integer([1]), sequence(hashAlgorithm("sha256"), octets(imprint)), der(0x01, [0xff]));
  const answer = await parseDer(Buffer.from(await stamps.answer(request)));
  const pkcs7 = pdfSignature(asha, digest, { unsigned: [stamp(answer.children[1].bytes)] });
  await stamps.judge(pkcs7);
  const { timestamp } = await verified(pkcs7, { timestampRoots: certifying.own.bytes });
  assert.deepEqual([timestamp.trusted, timestamp.authority.name], [true, "Test TSA"]);
});

test("With a trusted time the certificate has to hold then, and not today", async () => {
  const later = { at: inDays(60) };
  assert.equal(await verdict(stampedBy({}), later), "accepted");
  assert.equal(await verdict(stampedBy({}), { ...later, timestampRoots: [] }), "CERTIFICATE_EXPIRED");
  assert.equal(await verdict(pdfSignature(asha, digest), later), "CERTIFICATE_EXPIRED");
  const expired = certificate("Asha Rao", { issuer: issuing, to: inDays(-1) });
  assert.equal(await verdict(stampedBy({}, expired)), "CERTIFICATE_EXPIRED");
});

test("A certificate that was revoked behind the trusted time was good then", async () => {
  const crls = [
    crl(root, [], { to: inDays(9) }),
    crl(stampRoot, [], { to: inDays(9) }),
    crl(issuing, [[asha, inDays(-2)]], { to: inDays(9) }),
  ];
  const strict = { revocation: "require", crls };
  assert.equal(await verdict(stampedBy({ time: inDays(-5) }), strict), "accepted");
  assert.equal(await verdict(stampedBy({ time: inDays(-1) }), strict), "CERTIFICATE_REVOKED");
  assert.equal(await verdict(stampedBy({ time: inDays(-5) }), { ...strict, timestampRoots: [] }), "CERTIFICATE_REVOKED");
});

test("The authority's own certificate is asked for, too", async () => {
  const by = stampAuthority();
  const good = [crl(root), crl(issuing)];
  assert.equal(await verdict(stampedBy({ by }), { revocation: "require", crls: good }), "REVOCATION_UNKNOWN");
  assert.equal(
    await verdict(stampedBy({ by }), { revocation: "require", crls: [...good, crl(stampRoot, [[by, inDays(-1)]])] }),
    "CERTIFICATE_REVOKED",
  );
});

const bad = [
  ["of another signature", { stamped: Buffer.from("another") }],
  ["with a critical extension", { extensions: [context(1, extension("1.2.3.4", integer([1]), { critical: true }))] }],
  ["with a digest by SHA-1", { hash: "sha1" }],
  ["signed with SHA-1", { listedHash: "sha1" }],
  ["signed by another key", { key: asha.privateKey }],
  ["of another content", { attributes: [contentType(TST_INFO), messageDigest(digestOf("other"))] }],
  ["without signed attributes", { attributes: null }],
  ["of another kind of content", { attributes: [contentType(), messageDigest(digestOf("other"))] }],
  ["by a root of the same name", { by: stampAuthority({ issuer: authority("Stamp root", { keyLabel: "other" }) }) }],
  ["by a person", { by: certificate("Stamps", { issuer: stampRoot }) }],
  [
    "by one who is for more than time stamps",
    {
      by: stampAuthority({ extensions: personal({ purpose: purposes([TIME_STAMPING, "1.3.6.1.5.5.7.3.4"], { critical: true }) }) }),
    },
  ],
  [
    "by one who does not say critically what it is for",
    { by: stampAuthority({ extensions: personal({ purpose: purposes([TIME_STAMPING]) }) }) },
  ],
  ["by one that has expired", { by: stampAuthority({ to: inDays(-1) }) }],
  ["of a time to come", { time: new Date(Date.now() + 10 * MINUTE) }],
  ["of a time before its authority", { time: inDays(-31) }],
];
for (const [what, more] of bad) {
  test(`A time stamp ${what} makes the signature none`, async () => {
    assert.equal(await verdict(stampedBy(more)), "TIMESTAMP_INVALID");
  });
}

test("Two time stamps, an empty one and one that cannot be read are none", async () => {
  const two = pdfSignature(asha, digest, {
    unsigned: [(signature) => stamp(token(signature)), (signature) => stamp(token(signature))],
  });
  const both = pdfSignature(asha, digest, { unsigned: [(signature) => stamp(token(signature), token(signature))] });
  const garbled = pdfSignature(asha, digest, { unsigned: [stamp(sequence(octets([1, 2, 3])))] });
  for (const each of [two, both, garbled]) {
    assert.equal(await verdict(each), "TIMESTAMP_INVALID");
    assert.equal(await verdict(each, { timestampRoots: [] }), "TIMESTAMP_INVALID");
  }
});

test("A time stamp's authority does not sign documents, nor a signer time stamps", async () => {
  assert.equal(await verdict(pdfSignature(stampAuthority(), digest), { roots: stampRoot.der }), "CERTIFICATE_UNSUITABLE");
  assert.equal(await verdict(stampedBy({}), { timestampRoots: root.der }), "TIMESTAMP_INVALID");
  assert.equal(await verdict(stampedBy({}), { roots: stampRoot.der }), "CERTIFICATE_UNTRUSTED");
});
