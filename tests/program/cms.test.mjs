// The CMS SignedData that carries the text of a GST return.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { bytesOf, chooseAndLogIn, chooseFirst, contentOf, oid, parseDer, shapeOf, signedDataParts } from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

function signText(hash, more = {}) {
  return { action: "GSTReturnSign", hash, ...more };
}

test("The structure has these elements, in this order, with nothing more", withFake(async ({ host }) => {
  const { result } = await chooseAndLogIn(host, signText("abc"));
  const certificate = await parseDer((await world.certificate()).bytes);
  const algorithm = ["SEQUENCE", "OBJECT", "NULL"];
  assert.deepEqual(shapeOf(await parseDer(bytesOf(result))), ["SEQUENCE", "OBJECT", ["cont [ 0 ]", ["SEQUENCE",
    "INTEGER",
    ["SET", algorithm],
    ["SEQUENCE", "OBJECT", ["cont [ 0 ]", "OCTET STRING"]],
    ["cont [ 0 ]", shapeOf(certificate)],
    ["SET", ["SEQUENCE",
      "INTEGER",
      ["SEQUENCE", shapeOf(certificate.children[0].children[3]), "INTEGER"],
      algorithm,
      algorithm,
      "OCTET STRING"]],
  ]]]);
}));

test("The content holds the text, and the text is what the token signs", withFake(async ({ host, token }) => {
  const { result } = await chooseAndLogIn(host, signText("abc"));
  const { content, signerInfo } = await signedDataParts(bytesOf(result));
  assert.deepEqual(contentOf(content.children[1]), Buffer.from("0403616263", "hex"));
  assert.equal(signerInfo.children.length, 5);
  assert.deepEqual(signerInfo.children[3].children[0].bytes, oid("1.2.840.113549.1.1.1"));
  const [{ in: given }] = await token.calls("C_Sign");
  assert.deepEqual([given.data, given.dataLength], ["616263", 3]);
  assert.ok((await host.logLines()).includes("GST SIGN BYTES B4 SIGN: 616263"));
}));

test("An empty text is an empty OCTET STRING, and the token signs no bytes", withFake(async ({ host, token }) => {
  for (const request of [signText(""), { action: "GSTReturnSign" }]) {
    const first = (await token.calls("C_Sign")).length === 0;
    const { result } = await (first ? chooseAndLogIn : chooseFirst)(host, request);
    const { content } = await signedDataParts(bytesOf(result));
    assert.deepEqual(contentOf(content.children[1]), Buffer.from("0400", "hex"));
    assert.equal((await token.calls("C_Sign")).at(-1).in.dataLength, 0);
    assert.equal((await world.judges.cms(bytesOf(result))).length, 0);
  }
}));

for (const hashAlgorithm of ["SHA256", "SHA-384", "SHA-512"]) {
  test(`OpenSSL accepts the signature with ${hashAlgorithm} and finds the text in it`, withFake(async ({ host }) => {
    const text = JSON.stringify({ gstin: "33ABCDE1234F1Z5", fp: "102026", name: "Gewürze €", total: 1234.5 });
    const { result } = await chooseAndLogIn(host, signText(text, { hashAlgorithm }));
    assert.equal((await world.judges.cms(bytesOf(result))).toString(), text);
  }));
}

test("A return of 600 kB is signed whole, in one line of Base64", withFake({}, { settings: null }, async ({ host }) => {
  const text = JSON.stringify(Array.from({ length: 20_000 }, (_, i) => ({ invoice: i, sum: "1,000.00" })));
  const { result } = await chooseAndLogIn(host, signText(text));
  assert.match(result, /^[A-Za-z0-9+/]+=*$/);
  assert.ok((await world.judges.cms(bytesOf(result))).equals(Buffer.from(text)));
}));

test("The signature is by the certificate that was chosen", async (t) => {
  const certificates = [{ certificate: await world.certificate(), id: "1" }, { certificate: await world.certificate("second"), id: "2" }];
  const { host } = await world.hostWithFake(t, { certificates });
  host.send(signText("abc"));
  await host.user.clickCard(1, 2);
  await host.user.enterPin("1234");
  const der = Buffer.from((await host.reply()).result, "base64");
  assert.equal((await world.judges.cms(der)).toString(), "abc");
  assert.deepEqual(contentOf((await signedDataParts(der)).certificates), certificates[1].certificate.bytes);
});

test("At level DEBUG the last result lies in CMSSign.txt; at any other level no file is written", withFake(async ({ host }, t) => {
  const long = await chooseAndLogIn(host, signText("a longer text"));
  assert.equal(await host.readFile("CMSSign.txt"), long.result);
  const short = await chooseFirst(host, signText(""));
  assert.equal(await host.readFile("CMSSign.txt"), short.result);
  for (const level of [0, 2, 3]) {
    const { host: quiet } = await world.hostWithFake(t, {}, { settings: { AppLogLevel: level } });
    assert.equal((await chooseAndLogIn(quiet, signText("abc"))).status_cd, 1);
    await assert.rejects(quiet.readFile("CMSSign.txt"), { code: "ENOENT" });
  }
}));

test("A certificate that does not parse gives a structure with less in it, which the token signs all the same", async (t) => {
  const der = join(world.folder, "garbage.der");
  await writeFile(der, "no certificate");
  const { key } = await world.certificate();
  const { host, token } = await world.hostWithFake(t, { certificates: [{ certificate: { der, key }, id: "1" }] });
  const reply = await chooseAndLogIn(host, signText("abc"));
  assert.equal(reply.status_cd, 1);
  assert.equal((await token.calls("C_Sign")).length, 1);
  await parseDer(bytesOf(reply.result));
});

test("A failure of the token is the reply, without a prefix of the builder", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_SignInit", rv: 5 }] });
  const { result } = await chooseAndLogIn(host, signText("abc"));
  assert.equal(result, "QMHost Error: Error  in TokenSignData(): [CKR_ERROR in C_SignInit] ErrCode = 0x00000005.");
});
