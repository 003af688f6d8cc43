// Who may ask: the extension's question, the user's settings and the administrator's.

import assert from "node:assert/strict";

import { waitFor } from "../../program/lib/process.mjs";
import { ask, canSetPolicies, codeOf, GST_TEXT } from "./rig.mjs";

export function consentTests({ name, rig, browserTest, allowedPage }) {
  browserTest("the first request asks the user for consent, and the answer Once is for this request alone", async (t) => {
    const page = await rig.page(t);
    assert.equal((await ask(page, "status")).value.permission, "ask");
    for (let round = 0; round < 2; round++) {
      const request = ask(page, "selectCertificate");
      if (round === 0) {
        await rig.user.consentWindow(rig.origin);
        await rig.screenshot("consent");
      }
      await rig.user.consent(rig.origin, "once");
      await rig.user.choose(request);
      assert.equal((await request).value.CertThumbPrint, rig.thumbprint);
    }
    assert.equal((await ask(page, "status")).value.permission, "ask");
  });

  browserTest("a denied site gets ORIGIN_DENIED, without a second question until the page is loaded anew", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "signGstReturn", [GST_TEXT]);
    await rig.user.consentWindow(rig.origin);
    await rig.screenshot("consent-text");
    await rig.user.consent(rig.origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    assert.equal(codeOf(await ask(page, "signGstReturn", [GST_TEXT])), "ORIGIN_DENIED");
    assert.deepEqual(await rig.programs(), []);
    await page.reload();
    await page.waitForFunction("window.ask");
    const anew = ask(page, "selectCertificate");
    await rig.user.consent(rig.origin, "deny");
    assert.equal(codeOf(await anew), "ORIGIN_DENIED");
  });

  browserTest("a consent window whose page is withdrawn closes by itself", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "selectCertificate");
    const window = await rig.user.consentWindow(rig.origin);
    await page.evaluate(() => window.withdrawal.abort());
    assert.equal(codeOf(await request), "ABORTED");
    await rig.user.gone(window);
  });

  browserTest("a site that is always allowed is not asked about again, until the settings page revokes it", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(rig.origin, "always");
    await rig.user.cancel(request);
    assert.equal(codeOf(await request), "USER_CANCELLED");
    assert.equal((await ask(page, "status")).value.permission, "allowed");

    const window = await rig.user.browserWindow("Test page");
    await rig.user.openTab(window, `${rig.browser.extensionUrl}/options/options.html`, "Quillmark - Settings");
    await rig.screenshot("settings");
    // The site's Remove button is the first thing on the page that takes the keyboard.
    await rig.user.press(window, "Tab", "Return");
    await waitFor("the site to be revoked", async () => (await ask(page, "status")).value.permission === "ask");
    await rig.user.press(window, "ctrl+w");
  });

  browserTest("a frame counts by its own origin, not by its page's", async (t) => {
    const page = await allowedPage(t, { path: "/framing" });
    const frame = await waitFor("the frame", () => page.frames().find((each) => each.url().startsWith(rig.otherOrigin)));
    await frame.waitForFunction("window.ask");
    assert.equal((await ask(page, "status")).value.permission, "allowed");
    assert.equal((await ask(frame, "status")).value.permission, "ask");
    const request = ask(frame, "selectCertificate");
    await rig.user.consentWindow(rig.otherOrigin);
    await rig.screenshot("consent-frame");
    await rig.user.consent(rig.otherOrigin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
  });

  if (canSetPolicies(name)) {
    browserTest("a site that the administrator denies gets ORIGIN_DENIED without a question", async (t) => {
      const page = await rig.page(t, { origin: rig.deniedOrigin });
      assert.equal((await ask(page, "status")).value.permission, "denied");
      assert.equal(codeOf(await ask(page, "selectCertificate")), "ORIGIN_DENIED");
    });
  }

  browserTest("a page of another computer without https finds no extension", async (t) => {
    const page = await rig.page(t, { origin: rig.outsideOrigin });
    assert.equal(codeOf(await ask(page, "selectCertificate")), "EXTENSION_MISSING");
    assert.deepEqual((await ask(page, "status")).value, { extension: null, permission: null, host: null, waiting: 0 });
  });
}
