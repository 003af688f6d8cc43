// What has to hold in every browser, from a web page to a signature that OpenSSL and pdfsig accept.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { after, test } from "node:test";

import { consentTests } from "./consent.mjs";
import { failureTests } from "./failures.mjs";
import { registrationTests } from "./registration.mjs";
import { ask, bytes, Rig } from "./rig.mjs";
import { signingTests } from "./signing.mjs";

/** Defines all tests for "chromium" or "firefox". Call it once in a file. */
export function browserTests(name) {
  const rig = Rig.forThisFile(name);
  const title = name[0].toUpperCase() + name.slice(1);
  let ran = 0;
  const browserTest = (sentence, body) => test(`${title}: ${sentence}`, async (t) => {
    try {
      await body(t);
    } catch (error) {
      await rig.screenshot(`failed-${sentence.replaceAll(/\W+/g, "-").slice(0, 60)}`).catch(() => {});
      throw error;
    }
    ran++;
  });
  let signatures = 0;
  after(() => process.stderr.write(`${title}: ${ran} tests passed, ${signatures} signatures verified\n`));

  const check = async (verification) => {
    const result = await verification;
    signatures++;
    return result;
  };

  async function pdfIsValid({ value, ...failure }) {
    assert.ok(value, JSON.stringify(failure));
    const file = join(rig.world.folder, "signed.pdf");
    await writeFile(file, bytes(value));
    await check(rig.world.judges.pdf(file));
  }

  /** A page of the site that the user has allowed for good. */
  async function allowedPage(t, options) {
    const page = await rig.page(t);
    if ((await ask(page, "status")).value.permission === "allowed") {
      if (!options) return page;
    } else {
      const request = ask(page, "selectCertificate");
      await rig.user.consent(rig.origin, "always");
      await rig.user.cancel(request);
      await request;
    }
    // With the page the program goes that the permission has started.
    await page.close();
    await rig.programGone();
    return rig.page(t, options);
  }

  const suite = { name, rig, browserTest, check, pdfIsValid, allowedPage };
  for (const tests of [consentTests, signingTests, failureTests, registrationTests]) tests(suite);
}
