// What has to hold in every browser, from a web page to a signature that OpenSSL and pdfsig accept.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { after, before, test } from "node:test";

import { beforeunloadAttacks } from "../attacks/beforeunload.mjs";
import { documentOpenAttacks } from "../attacks/document-open.mjs";
import { doubleClickAttacks } from "../attacks/double-click.mjs";
import { dragAndDropAttacks } from "../attacks/drag-and-drop.mjs";
import { extensionReloadAttacks } from "../attacks/extension-reload.mjs";
import { floodAttacks } from "../attacks/flood.mjs";
import { frameAttacks } from "../attacks/frames.mjs";
import { fullScreenAttacks } from "../attacks/full-screen.mjs";
import { gestureAttacks } from "../attacks/gestures.mjs";
import { navigationAttacks } from "../attacks/navigation.mjs";
import { oddTypeAttacks } from "../attacks/odd-types.mjs";
import { openIdAttacks } from "../attacks/open-ids.mjs";
import { pictureInPictureAttacks } from "../attacks/picture-in-picture.mjs";
import { policyAttacks } from "../attacks/policies.mjs";
import { revocationAttacks } from "../attacks/revocation.mjs";
import { signOfLifeAttacks } from "../attacks/signs-of-life.mjs";
import { statusAttacks } from "../attacks/status.mjs";
import { stolenFocusAttacks } from "../attacks/stolen-focus.mjs";
import { twoWindowAttacks } from "../attacks/two-windows.mjs";
import { typedAheadAttacks } from "../attacks/typed-ahead.mjs";
import { shownAttacks } from "../attacks/what-is-shown.mjs";
import { COVER } from "./attacker.mjs";
import { consentTests } from "../uses/consent.mjs";
import { failureTests } from "../uses/failures.mjs";
import { registrationTests } from "../uses/registration.mjs";
import { ask, bytes, Rig, statusOf } from "../../lib/browser/rig.mjs";
import { signingTests } from "../uses/signing.mjs";

const ATTACKS = [
  doubleClickAttacks, fullScreenAttacks, pictureInPictureAttacks, stolenFocusAttacks, typedAheadAttacks, dragAndDropAttacks,
  beforeunloadAttacks, gestureAttacks, twoWindowAttacks, navigationAttacks, frameAttacks, statusAttacks, oddTypeAttacks,
  openIdAttacks, documentOpenAttacks, shownAttacks, floodAttacks, revocationAttacks, extensionReloadAttacks, signOfLifeAttacks,
];

/** Defines all tests for "chromium" or "firefox". Call it once in a file. */
export function browserTests(name) {
  const rig = Rig.forThisFile(name);
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
    const file = join(rig.world.folder, "signed.pdf");
    await writeFile(file, bytes(value));
    await check(rig.world.judges.pdf(file));
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
      await request;
    }
    // With the page the program goes that the permission has started.
    await page.close();
    await rig.programGone();
    return rig.page(t, options);
  }

  const suite = { name, rig, browserTest, check, pdfIsValid, allowedPage };
  before(() => rig.addPage("/cover", COVER));
  for (const tests of [consentTests, signingTests, failureTests]) tests(suite);
  for (const attacks of ATTACKS) attacks({ name, rig, attack: browserTest });
  registrationTests(suite);
  policyAttacks({ name, rig, attack: browserTest });
}
