import assert from "node:assert/strict";
import { createHash, verify } from "node:crypto";
import { execFileSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import { test } from "node:test";

import { startKit } from "quillmark-testkit";

import { ask, browser, display, PAGE, product } from "./page.mjs";

test("My page signs", async (t) => {
  const kit = await startKit({ browser, product, display, certificates: [{ cn: "Asha Rao" }] });
  t.after(() => kit.stop());
  await kit.whenAsked({ consent: "once", certificate: 0, pin: "1234" });
  const page = await kit.page(await kit.serve({ "/": PAGE }));
  await page.click("button");
  await page.waitForFunction(() => document.querySelector("output").textContent !== "Nothing yet", { timeout: 120_000 });
  const signature = await page.$eval("output", (output) => output.textContent);
  assert.ok(verify("sha256", Buffer.from("a token"), kit.certificates[0], Buffer.from(signature, "base64")));

  await kit.whenAsked({ consent: "always" });
  const thumbprint = (await ask(page, "selectCertificate", [])).value.CertThumbPrint;
  const digest = createHash("sha256").update("a document").digest("base64");
  const { value } = await ask(page, "signPdfHash", [digest, thumbprint]);
  writeFileSync("signed.p7s", Buffer.from(value, "base64"));
  writeFileSync("document", "a document");
  writeFileSync("authority.pem", kit.authority);
  execFileSync("openssl", ["cms", "-verify", "-binary", "-inform", "DER", "-in", "signed.p7s", "-content", "document",
    "-CAfile", "authority.pem", "-purpose", "any"], { stdio: "pipe" });

  const { origin } = new URL(page.url());
  assert.deepEqual(kit.asked, [
    { window: "consent", origin, operation: "signAuthToken" }, { window: "certificate" }, { window: "pin" },
    { window: "consent", origin, operation: "selectCertificate" }, { window: "certificate" },
  ]);
});
