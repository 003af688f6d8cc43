// The whole program with tokens that others wrote: for each, all that a user does, judged by openssl and pdfsig.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { thumbprint } from "./lib/judges.mjs";
import { makePdfWithoutZeroInDigest, signPdf } from "./lib/pdf.mjs";
import { chooseAndLogIn, chooseFirst, World } from "./lib/world.mjs";
import { noReader, smartCard } from "./smart-card/reader.mjs";
import { nss } from "./tokens/nss.mjs";
import { noOpencryptoki, opencryptoki } from "./tokens/opencryptoki.mjs";
import { asUser } from "./tokens/private-modules.mjs";
import { softhsm } from "./tokens/softhsm.mjs";
import { tpm2 } from "./tokens/tpm2.mjs";

const world = World.forThisFile();

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

    const chosen = await chooseFirst(host, { action: "GetSelCertFromToken" });
    assert.equal(chosen.status_cd, 1, chosen.result);
    const record = JSON.parse(chosen.result);
    assert.equal(record.CertThumbPrint, await thumbprint(token.certificate.pem));

    const text = JSON.stringify({ gstin: "33AAACQ0000A1Z5" });
    const gst = await chooseAndLogIn(host, { action: "GSTReturnSign", hash: text, hashAlgorithm: "SHA256" }, token.pin);
    assert.equal(gst.status_cd, 1, gst.result);
    assert.equal((await world.judges.cms(decoded(gst))).toString(), text);

    const signed = join(world.folder, `${create.name}.pdf`);
    const pdf = await makePdfWithoutZeroInDigest(["Signed with a token"]);
    await writeFile(signed, await signPdf(pdf, async (digest) => {
      const reply = await host.request({ action: "PdfSignFromToken", hash: digest.toString("base64"),
        hashAlgorithm: "SHA256", certThumbPrint: record.CertThumbPrint });
      assert.equal(reply.status_cd, 1, reply.result);
      return decoded(reply);
    }));
    await world.judges.pdf(signed);

    const authToken = await chooseFirst(host, { action: "SignAuthToken", authToken: "1Ktoken", hashAlgorithm: "SHA512" });
    assert.equal(authToken.status_cd, 1, authToken.result);
    await world.judges.rsa(decoded(authToken), "1Ktoken", token.certificate.pem, "sha512");

    assert.deepEqual(await host.finish(), { code: 0, signal: null });
  });
}

function decoded(reply) {
  return Buffer.from(reply.result, "base64");
}
