import assert from "node:assert/strict";
import { X509Certificate } from "node:crypto";
import { after, before, beforeEach, test } from "node:test";

import { startKit } from "quillmark-testkit";

import { ask, browser, PAGE, product } from "./page.mjs";

let kit;
let page;
before(async () => {
  kit = await startKit({ browser, product, certificates: [{ cn: "Asha Rao" }, { cn: "R/D + Söhne", organisation: "A, B", email: null }] });
  page = await kit.page(await kit.serve({ "/": PAGE }));
});
beforeEach(() => kit.whenAsked({ consent: "always" }));
after(() => kit?.stop());

const sign = (options) => ask(page, "signAuthToken", ["a token"], options);
const signs = async () => {
  const { value, ...failure } = await sign();
  assert.ok(value, JSON.stringify(failure));
};
const choose = () => ask(page, "selectCertificate", []);
const certificateOf = ({ value }) => new X509Certificate(Buffer.from(value.Cert, "base64"));

test("A certificate is chosen by its row, and a cancelled choice is USER_CANCELLED", async () => {
  for (const row of [1, 0]) {
    await kit.whenAsked({ consent: "always", certificate: row });
    const { fingerprint } = new X509Certificate(kit.certificates[row]);
    assert.equal((await choose()).value?.CertThumbPrint, fingerprint.replaceAll(":", ""));
  }
  await kit.whenAsked({ certificate: "cancel" });
  assert.equal((await choose()).code, "USER_CANCELLED");
});

test("A PIN that is cancelled is LOGIN_FAILED", async () => {
  await kit.whenAsked({ pin: "cancel" });
  assert.equal((await sign()).code, "LOGIN_FAILED");
  await kit.whenAsked();
  await signs();
});

for (const [fault, code] of [["wrong-pin", "LOGIN_FAILED"], ["no-token", "TOKEN_MISSING"], ["pulled", "LOGIN_FAILED"]]) {
  test(`${fault} is ${code} in the page, and it signs when that is mended`, async () => {
    await kit.fault(fault);
    assert.equal((await sign()).code, code);
    await kit.mend();
    await signs();
  });
}

test("A wrong PIN is typed once", async () => {
  await kit.fault("wrong-pin");
  assert.equal((await sign()).code, "LOGIN_FAILED");
  await signs();
});

test("slow answers late, and is TIMEOUT for a page that does not wait", async () => {
  await kit.fault("slow", { milliseconds: 4_000 });
  const begun = Date.now();
  await signs();
  assert.ok(Date.now() - begun > 4_000);
  await kit.fault("slow", { milliseconds: 9_000 });
  assert.equal((await sign({ timeout: 8_000 })).code, "TIMEOUT");
  await kit.mend();
  await signs();
});

test("expired signs with a certificate that is no longer valid", async () => {
  await kit.fault("expired");
  const certificate = certificateOf(await choose());
  assert.ok(new Date(certificate.validTo) < new Date());
  assert.ok(certificate.verify(new X509Certificate(kit.authority).publicKey));
  await signs();
  await kit.mend();
  assert.equal(certificateOf(await choose()).serialNumber, new X509Certificate(kit.certificates[0]).serialNumber);
});

test("A site that is denied is ORIGIN_DENIED, and what the kit does not know is a TypeError", async () => {
  await assert.rejects(kit.fault("earthquake"), TypeError);
  await assert.rejects(kit.whenAsked({ consent: "perhaps" }), TypeError);
  await assert.rejects(kit.whenAsked({ certificate: -1 }), TypeError);
  await kit.whenAsked({ consent: "deny" });
  const stranger = await kit.page(await kit.serve({ "/": PAGE }));
  assert.equal((await ask(stranger, "selectCertificate", [])).code, "ORIGIN_DENIED");
});
