// The whole job with a real token: SoftHSM behind the host's own driver.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  BINARY_ID, bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, contentOf, makeSignedPdf, NORMAL_END, openWindow,
  signedDataParts,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

/** A host with a SoftHSM token: the user's certificate, an expired one, and a CA's that is not offered. */
async function hostWithSoftToken(t, options = {}) {
  return world.host(t, { token: await world.softToken(t), ...options });
}

/** Chooses the card with this name, wherever it stands in the list: a token gives its objects in any order. */
async function choose(host, request, name) {
  await openWindow(host, request);
  const cards = (await host.logLines()).filter((line) => line.startsWith("<div style='font-family:verdana;'>"));
  await host.user.clickCard(cards.findIndex((card) => card.includes(`<b>${name}</b>`)), 2);
}

test("A user chooses, signs a return, a PDF and a token in one run, with one PIN", async (t) => {
  const host = await hostWithSoftToken(t);
  const certificate = await world.certificate();

  await choose(host, CHOOSE, "user");
  const record = JSON.parse((await host.reply()).result);
  assert.equal(record.CertThumbPrint, certificate.thumbprint);
  assert.equal(record.CKA_ID, BINARY_ID.toUpperCase());

  const text = '{"gstin":"33ABCDE1234F1Z5"}';
  await choose(host, { action: "GSTReturnSign", hash: text }, "user");
  await host.user.enterPin("1234");
  assert.equal((await world.judges.cms(Buffer.from((await host.reply()).result, "base64"))).toString(), text);

  await world.judges.pdf(await makeSignedPdf(["A contract"], async (hash) =>
    (await host.request({ action: "PdfSignFromToken", hash, certThumbPrint: record.CertThumbPrint })).result));

  await choose(host, { action: "SignAuthToken", authToken: "token-1" }, "user");
  await world.judges.rsa(Buffer.from((await host.reply()).result, "base64"), "token-1", certificate.pem);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

test("The user's and the expired certificate are offered, the CA's is not", async (t) => {
  const host = await hostWithSoftToken(t);
  await chooseFirst(host, CHOOSE);
  const log = await host.logText();
  assert.match(log, / 2 items Loaded in Certificate List\.\n/);
  assert.match(log, /<b>expired<\/b>.*Expired: Wed, 15 Nov 2023 00:00:00 GMT/);
  assert.match(log, /<b>user<\/b>.*Valid upto: Fri, 31 Dec 2049 23:59:59 GMT/);
});

test("An expired certificate signs when the user insists", async (t) => {
  const host = await hostWithSoftToken(t);
  await choose(host, { action: "GSTReturnSign", hash: "late" }, "expired");
  await host.user.enterPin("1234");
  const der = Buffer.from((await host.reply()).result, "base64");
  assert.equal((await world.judges.cms(der, { checkTime: false })).toString(), "late");
  await assert.rejects(world.judges.cms(der));
});

test("A wrong PIN, and then the right one", async (t) => {
  const host = await hostWithSoftToken(t);
  const request = { action: "SignAuthToken", authToken: "x" };
  assert.equal((await chooseAndLogIn(host, request, "9999")).result, "QMHost Error: ");
  assert.ok((await host.logLines()).includes("Error in GetTokenPvtKey(): [CKR_ERROR in C_Login] ErrCode = 0x000000A0."));
  assert.equal((await chooseAndLogIn(host, request)).status_cd, 1);
});

for (const hash of ["sha256", "sha384", "sha512"]) {
  test(`An authentication token is signed with ${hash}`, async (t) => {
    const host = await hostWithSoftToken(t);
    await choose(host, { action: "SignAuthToken", authToken: "token", hashAlgorithm: hash.toUpperCase() }, "user");
    await host.user.enterPin("1234");
    const { result } = await host.reply();
    await world.judges.rsa(bytesOf(result), "token", (await world.certificate()).pem, hash);
  });
}

test("A hundred signatures in one run, each good", async (t) => {
  const host = await hostWithSoftToken(t, { settings: null });
  const certificate = await world.certificate();
  await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
  const signatures = new Set();
  for (let i = 1; i <= 100; ++i) {
    const hash = Buffer.alloc(32, i).toString("base64");
    const { result } = await host.request({ action: "PdfSignFromToken", hash, certThumbPrint: certificate.thumbprint, nonce: String(i) });
    const { signerInfo } = await signedDataParts(bytesOf(result));
    const attributes = Buffer.from(signerInfo.children[3].bytes);
    attributes[0] = 0x31; // signed as a SET
    await world.judges.rsa(contentOf(signerInfo.children.at(-1)), attributes, certificate.pem);
    signatures.add(result);
  }
  assert.equal(signatures.size, 100);
});

test("An income-tax return without the chosen key is a missing key", async (t) => {
  const host = await hostWithSoftToken(t);
  const { result } = await chooseAndLogIn(host, { action: "ITReturnSign", hash: "AAAA", PAN: "ABCDE1234F" });
  assert.equal(result, "QMHost Error: Private Key NOT Found");
  // The search that the host leaves open does not get in the way of the next one: the driver ends it.
  assert.equal((await chooseFirst(host, { action: "SignAuthToken", authToken: "x" })).status_cd, 1);
});
