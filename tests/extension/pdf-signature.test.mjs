// Signatures in PDF documents: whether they are whole, second ones, time stamps, chains, and those that are seen.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { readFile } from "node:fs/promises";
import { join } from "node:path";
import { after, before, test } from "node:test";

import { PDFDocument, degrees } from "pdf-lib";

import { commonName, extended, timeStampRequest, tokenIn } from "../../extension/src/pdf/cms.js";
import { checkFinished, opened } from "../../extension/src/pdf/document.js";
import { facts, prepared, run, signaturesIn, Signer } from "./pdf/sign.mjs";
import { TimeStampAuthority } from "./pdf/time-stamps.mjs";

let signer;
let bytes;
before(async () => {
  signer = await Signer.create();
  const document = await PDFDocument.create();
  document.addPage().drawText("A contract");
  bytes = await document.save();
});
after(() => signer.remove());

const statesOf = async (file) => (await facts(file)).signatures.map(({ isWhole, coversAll }) => [isWhole, coversAll]);

test("A signature is whole, and after an addition it is whole and does not cover all", async () => {
  const signed = await signer.sign(bytes);
  assert.deepEqual(await statesOf(signed), [[true, true]]);
  const { signatures } = await facts(signed);
  assert.equal(signatures[0].signer, "Asha Rao");
  assert.deepEqual(Buffer.from(signatures[0].certificate), signer.bytes);
  assert.deepEqual(await statesOf(await signer.sign(signed)), [[true, false], [true, true]]);
});

test("A byte that was changed anywhere in what is signed breaks the signature", async () => {
  const signed = await signer.sign(bytes);
  const [{ covered }] = signaturesIn(signed);
  assert.ok(covered.length > bytes.length);
  for (const at of [30, bytes.length - 60, bytes.length + 20]) {
    const changed = signed.slice();
    changed[at] ^= 1;
    const states = await statesOf(changed).catch(({ code }) => code);
    assert.ok(states === "DOCUMENT_REFUSED" || states[0]?.[0] !== true, `byte ${at}`);
  }
});

test("A signature over less than it seems is broken: another gap, another start, another place of its Contents", async () => {
  const signed = Buffer.from(await signer.sign(bytes)).toString("latin1");
  const [, gap, behind] = /ByteRange \[ 0 (\d+) (\d+)/.exec(signed);
  for (const [from, to] of [
    [`0 ${gap} ${behind}`, `0 ${gap} ${Number(behind) + 1}`],
    [`0 ${gap} ${behind}`, `1 ${gap} ${behind}`],
    [`0 ${gap} ${behind}`, `0 ${Number(gap) - 5} ${behind}`],
  ]) {
    const changed = new Uint8Array(Buffer.from(signed.replace(`ByteRange [ ${from}`, `ByteRange [ ${to}`), "latin1"));
    assert.equal((await statesOf(changed))[0][0], false, to);
  }
});

test("Of a hundred documents none has a digest with a zero byte, and the time is never in the future", async () => {
  const time = new Date();
  let moved = 0;
  for (let i = 0; i < 100; i++) {
    const { digest, covered } = await prepared(bytes, { signer: "", reason: `Document ${i}`, time, room: 4096 });
    assert.deepEqual(Buffer.from(digest), createHash("sha256").update(covered).digest());
    assert.ok(!digest.includes(0));
    const [, text] = /\/M \(D:(\d{14})Z\)/.exec(Buffer.from(covered).toString("latin1"));
    const written = Date.parse(text.replace(/(....)(..)(..)(..)(..)(..)/, "$1-$2-$3T$4:$5:$6Z"));
    assert.ok(written <= time.getTime() && written > time.getTime() - 21_000);
    if (written < time.getTime() - 1000) moved++;
  }
  assert.ok(moved > 0, "some needed another time");
});

test("A file whose signature is another's, or over something else, does not pass the check", async () => {
  const other = await Signer.create();
  try {
    const made = await prepared(bytes, { signer: "", time: new Date(), room: 4096 });
    const invalid = { code: "SIGNATURE_INVALID" };
    await assert.rejects(checkFinished(opened(bytes), made.insert(await other.cms(made.covered)), signer.bytes), invalid);
    await assert.rejects(checkFinished(opened(bytes), made.insert(await signer.cms(Buffer.from("something else"))), signer.bytes), invalid);
    await assert.rejects(checkFinished(opened(bytes), made.insert(new Uint8Array(100)), signer.bytes), invalid);
    const cms = await signer.cms(made.covered);
    cms[cms.length - 5] ^= 1;
    await assert.rejects(checkFinished(opened(bytes), made.insert(cms), signer.bytes), invalid);
    await checkFinished(opened(bytes), made.insert(await signer.cms(made.covered)), signer.bytes);
  } finally {
    await other.remove();
  }
});

test("A signature longer than its room is an error and cuts nothing", async () => {
  const made = await prepared(bytes, { signer: "", time: new Date(), room: 100 });
  assert.throws(() => made.insert(new Uint8Array(101)), { code: "DOCUMENT_REFUSED" });
});

test("A time stamp and a chain go into the signature, and openssl ts, openssl cms and pdfsig accept it", async () => {
  const authority = await TimeStampAuthority.create(signer);
  const chain = [new Uint8Array(await readFile(join(signer.folder, "ca.der")))];
  let before;
  const signed = await signer.sign(bytes, { room: 32 * 1024 }, async (signature) => {
    before = signature;
    const query = await timeStampRequest(signature);
    const token = await tokenIn(await authority.answer(query.request), query);
    return extended(signature, { chain, token });
  });
  await signer.judge(signed, 1, bytes);
  const [{ signature }] = signaturesIn(signed);
  await authority.judge(signature);
  const certificates = await run("openssl", ["pkcs7", "-inform", "DER", "-print_certs", "-in", await signer.file("p7", signature)]);
  assert.equal(certificates.stdout.toString().split("BEGIN CERTIFICATE").length - 1, 2);
  assert.ok(signature.length > before.length);
});

test("A time stamp for another signature, a refusal, and what is no answer are not taken", async () => {
  const authority = await TimeStampAuthority.create(signer);
  const [one, other] = [await timeStampRequest(await signer.cms(Buffer.from("one"))), await timeStampRequest(await signer.cms(Buffer.from("other")))];
  const answer = await authority.answer(one.request);
  await assert.rejects(tokenIn(answer, other), /another signature/);
  await assert.rejects(tokenIn(await authority.answer(Buffer.from("no request")), one), /not granted/);
  await assert.rejects(tokenIn(Buffer.from("<html>"), one));
  const broken = Uint8Array.from(answer);
  broken[broken.length - 5] ^= 1;
  await assert.rejects(tokenIn(broken, one), /not whole/);
});

test("A visible signature is on its page, upright on pages that are turned, and qpdf and mutool draw it", async () => {
  for (const turn of [0, 90, 180, 270]) {
    const document = await PDFDocument.create();
    document.addPage([300, 400]);
    document.addPage([300, 400]).setRotation(degrees(turn));
    const plain = await document.save();
    const rgb = new Uint8Array(20 * 10 * 3).map((_, i) => (Math.floor(i / 3) % 20 < 10 ? [255, 0, 0] : [0, 0, 255])[i % 3]);
    const rectangle = turn % 180 === 0 ? [100, 100, 200, 150] : [100, 100, 150, 200];
    const appearance = { page: 1, rectangle, picture: () => ({ width: 20, height: 10, rgb }) };
    const signed = await signer.sign(plain, { appearance });
    await signer.judge(signed, 1, plain);
    const file = await signer.file("visible.pdf", signed);
    await run("mutool", ["draw", "-q", "-r", "72", "-o", join(signer.folder, "visible.ppm"), file, "2"]);
    const { red, blue } = colours(await readFile(join(signer.folder, "visible.ppm")));
    assert.ok(red.length > 1000 && blue.length > 1000, `turned by ${turn}: ${red.length} red, ${blue.length} blue`);
    const middle = (list, key) => list.reduce((sum, each) => sum + each[key], 0) / list.length;
    assert.ok(middle(red, "x") < middle(blue, "x") - 20, `turned by ${turn}: red is left of blue`);
    assert.ok(Math.abs(middle(red, "y") - middle(blue, "y")) < 5, `turned by ${turn}: side by side`);
  }
});

// The places of the red and the blue dots of a picture (PPM).
function colours(ppm) {
  const [head, width] = /^P6\s+(\d+)\s+\d+\s+255\s/.exec(ppm.toString("latin1"));
  const found = { red: [], blue: [] };
  for (let at = head.length, i = 0; at < ppm.length; at += 3, i++) {
    const place = { x: i % Number(width), y: Math.floor(i / Number(width)) };
    if (ppm[at] > 200 && ppm[at + 2] < 50) found.red.push(place);
    if (ppm[at] < 50 && ppm[at + 2] > 200) found.blue.push(place);
  }
  return found;
}

test("A name in any script is read from a certificate", async () => {
  const { bytes: der } = await signer.authority.issue("other", { subject: "/CN=आशा राव" });
  assert.equal(commonName(der), "आशा राव");
});

