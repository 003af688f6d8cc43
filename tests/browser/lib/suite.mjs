// What has to hold in every browser, from a web page to a signature that OpenSSL and pdfsig accept.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";

import { ask, bytesOf, Rig, statusOf } from "../../lib/browser-kit.mjs";
import { product } from "../../lib/quillmark.mjs";
import { COVER } from "./attacker.mjs";
import { consentTests } from "../uses/consent.mjs";
import { doctorPageTests } from "../uses/doctor-pages.mjs";
import { doctorTests } from "../uses/doctor.mjs";
import { failureTests } from "../uses/failures.mjs";
import { hearingTests } from "../uses/hearing.mjs";
import { keysTests } from "../uses/keys.mjs";
import { languageTests } from "../uses/languages.mjs";
import { loginTests } from "../uses/login.mjs";
import { pdfTests } from "../uses/pdf.mjs";
import { registrationTests } from "../uses/registration.mjs";
import { sightTests } from "../uses/sight.mjs";
import { signingTests } from "../uses/signing.mjs";

const ATTACKS = [
  "double-click", "full-screen", "picture-in-picture", "stolen-focus", "typed-ahead", "drag-and-drop", "beforeunload",
  "gestures", "two-windows", "navigation", "frames", "status", "odd-types", "open-ids", "document-open",
  "what-is-shown", "order-of-text", "flood", "revocation", "extension-reload", "signs-of-life",
  "pdf-documents",
];
const attacksOf = async (file) => (await import(`../attacks/${file}.mjs`)).default;
const attacks = await Promise.all(ATTACKS.map(attacksOf));
const policyAttacks = await attacksOf("policies");

/** Defines all tests for "chromium" or "firefox". Call it once in a file. */
export function browserTests(name) {
  const rig = Rig.forThisFile(name, product);
  const title = name[0].toUpperCase() + name.slice(1);
  let ran = 0;
  const browserTest = (sentence, body) => test(`${title}: ${sentence}`, async (t) => {
    await rig.restForQuestions();
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
    await check(rig.world.judges.pdf(bytesOf(value)));
  }

  /** A page of the site that the user has allowed for good. */
  async function allowedPage(t, options) {
    const page = await rig.page(t);
    if ((await statusOf(page)).permission === "allowed") {
      if (!options) return page;
    } else {
      const request = ask(page, "selectCertificate");
      await rig.user.consent(rig.origin, "always");
      await rig.user.cancel(request);
    }
    // With the page the program goes that the permission has started.
    await page.close();
    await rig.program.gone();
    return rig.page(t, options);
  }

  const suite = { name, rig, browserTest, check, pdfIsValid, allowedPage };
  before(() => rig.addPage("/cover", COVER));
  for (const tests of [consentTests, signingTests, failureTests, loginTests, pdfTests, doctorPageTests, sightTests, keysTests, hearingTests]) tests(suite);
  for (const define of attacks) define({ name, rig, attack: browserTest });
  doctorTests(suite);
  registrationTests(suite);
  languageTests(suite);
  policyAttacks({ name, rig, attack: browserTest });
}
