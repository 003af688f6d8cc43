// The whole program with tokens that others wrote: for each, all that a user does, judged by openssl and pdfsig.

import assert from "node:assert/strict";
import { test } from "node:test";

import { BINARY_ID, bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, makeSignedPdf, NORMAL_END, SoftToken } from "../lib/kit.mjs";
import { nss } from "../lib/token/nss.mjs";
import { noOpencryptoki, opencryptoki } from "../lib/token/opencryptoki.mjs";
import { asUser } from "../lib/token/private-token.mjs";
import { noReader, smartCard } from "../lib/token/smart-card/reader.mjs";
import { tpm2 } from "../lib/token/tpm2.mjs";
import { world } from "./lib/world.mjs";

/** A SoftHSM token with one certificate. */
async function softhsm(folder) {
  const [token, certificate] = [await SoftToken.create(folder), await world.certificate()];
  await token.addPair(certificate, BINARY_ID);
  return Object.assign(token, { certificate });
}

const modules = [
  ["SoftHSM 2", softhsm],
  ["NSS softokn", nss],
  ["TPM 2", tpm2],
  ["OpenSC with a smart card", smartCard, noReader],
  ["openCryptoki", opencryptoki, noOpencryptoki],
];

for (const [name, create, skip = false] of modules) {
  test(`${name}: listed, chosen, a GST return, a PDF and an authentication token signed`, { skip }, async (t) => {
    const cleanup = world.cleanupOf(t);
    const token = await create(await cleanup.folder("token"), world, cleanup);
    const host = await world.host(t, { token, wrapper: token.wrapper ?? asUser });

    const chosen = await chooseFirst(host, CHOOSE);
    assert.equal(chosen.status_cd, 1, chosen.result);
    const record = JSON.parse(chosen.result);
    assert.equal(record.CertThumbPrint, token.certificate.thumbprint);

    const text = JSON.stringify({ gstin: "33AAACQ0000A1Z5" });
    const gst = await chooseAndLogIn(host, { action: "GSTReturnSign", hash: text, hashAlgorithm: "SHA256" }, token.pin);
    assert.equal(gst.status_cd, 1, gst.result);
    assert.equal((await world.judges.cms(bytesOf(gst.result))).toString(), text);

    await world.judges.pdf(await makeSignedPdf(["Signed with a token"], async (hash) => {
      const pdf = { action: "PdfSignFromToken", hash, hashAlgorithm: "SHA256", certThumbPrint: record.CertThumbPrint };
      const { status_cd: status, result } = await host.request(pdf);
      assert.equal(status, 1, result);
      return result;
    }));

    const authToken = await chooseFirst(host, { action: "SignAuthToken", authToken: "1Ktoken", hashAlgorithm: "SHA512" });
    assert.equal(authToken.status_cd, 1, authToken.result);
    await world.judges.rsa(bytesOf(authToken.result), "1Ktoken", token.certificate.pem, "sha512");

    assert.deepEqual(await host.finish(), NORMAL_END);
  });
}
