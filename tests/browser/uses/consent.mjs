// Who may ask: the extension's question, the user's settings and the administrator's.

import assert from "node:assert/strict";

import { ask, canSetPolicies, codeOf, GST_TEXT, ready, sleep, statusOf, waitFor, withdraw } from "../../lib/browser-kit.mjs";

export function consentTests({ name, rig, browserTest, allowedPage }) {
  browserTest("the first request asks the user for consent, and the answer Once is for this request alone", async (t) => {
    const page = await rig.page(t);
    assert.equal((await statusOf(page)).permission, "ask");
    for (let round = 0; round < 2; round++) {
      const request = ask(page, "selectCertificate");
      if (round === 0) {
        await rig.user.consentWindow(rig.origin);
        await rig.screenshot("consent");
      }
      await rig.user.consent(rig.origin, "once");
      await rig.user.choose(request);
      assert.equal((await request).value.CertThumbPrint, rig.certificate.thumbprint);
    }
    assert.equal((await statusOf(page)).permission, "ask");
  });

  browserTest("a denied site gets ORIGIN_DENIED, in a page that is loaded anew NOT_NOW, and may ask again after ten seconds", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "signGstReturn", [GST_TEXT]);
    await rig.user.consentWindow(origin);
    await rig.screenshot("consent-text");
    await rig.user.consent(origin, "deny");
    const denied = Date.now();
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    assert.equal(codeOf(await ask(page, "signGstReturn", [GST_TEXT])), "ORIGIN_DENIED");
    assert.deepEqual(await rig.program.running(), []);
    await page.reload();
    await ready(page);
    assert.equal(codeOf(await ask(page, "selectCertificate")), "NOT_NOW");
    await sleep(denied + 11_000 - Date.now());
    const anew = ask(page, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal(codeOf(await anew), "ORIGIN_DENIED");
  });

  browserTest("a consent window whose page is withdrawn closes by itself", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "selectCertificate");
    const window = await rig.user.consentWindow(origin);
    await withdraw(page);
    assert.equal(codeOf(await request), "ABORTED");
    await rig.user.gone(window);
  });

  browserTest("a site that is allowed until its page closes is asked about once, and again in a page that is loaded anew", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const first = ask(page, "selectCertificate");
    await rig.user.consent(origin, "page");
    await rig.user.choose(first);
    assert.equal((await first).value.CertThumbPrint, rig.certificate.thumbprint);
    const second = await rig.user.choose(ask(page, "selectCertificate"));
    assert.equal(second.value.CertThumbPrint, rig.certificate.thumbprint);
    await page.reload();
    await ready(page);
    assert.equal((await statusOf(page)).permission, "ask");
  });

  browserTest("Escape denies, and so does closing the window", async (t) => {
    for (const keys of ["Escape", "alt+F4"]) {
      const { origin, page } = await rig.freshPage(t);
      const request = ask(page, "selectCertificate");
      await rig.user.press(await rig.user.consentWindow(origin), keys);
      assert.equal(codeOf(await request), "ORIGIN_DENIED", keys);
    }
  });

  browserTest("a site that is always allowed is not asked about again, until the settings page revokes it", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(rig.origin, "always");
    await rig.user.cancel(request);
    assert.equal(codeOf(await request), "USER_CANCELLED");
    assert.equal((await statusOf(page)).permission, "allowed");

    const window = await rig.user.browserWindow("Test page");
    await rig.user.openTab(window, `${rig.browser.extensionUrl}/options/options.html`, "Quillmark - Settings");
    await rig.screenshot("settings");
    // The site's Remove button is the first thing on the page that takes the keyboard.
    await rig.user.press(window, "Tab", "Return");
    await waitFor("the site to be revoked", async () => (await statusOf(page)).permission === "ask");
    await rig.user.press(window, "ctrl+w");
  });

  browserTest("a frame counts by its own origin, not by its page's", async (t) => {
    const page = await allowedPage(t, { path: "/framing" });
    const frame = await rig.frameOf(page, rig.otherOrigin);
    assert.equal((await statusOf(page)).permission, "allowed");
    assert.equal((await statusOf(frame)).permission, "ask");
    const request = ask(frame, "selectCertificate");
    await rig.user.consentWindow(rig.otherOrigin);
    await rig.screenshot("consent-frame");
    await rig.user.consent(rig.otherOrigin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
  });

  if (canSetPolicies(name)) {
    browserTest("a site that the administrator denies gets ORIGIN_DENIED without a question", async (t) => {
      const page = await rig.page(t, { origin: rig.deniedOrigin });
      assert.equal((await statusOf(page)).permission, "denied");
      assert.equal(codeOf(await ask(page, "selectCertificate")), "ORIGIN_DENIED");
    });
  }

  browserTest("a page of another computer without https finds no extension", async (t) => {
    const page = await rig.page(t, { origin: rig.outsideOrigin });
    assert.equal(codeOf(await ask(page, "selectCertificate")), "EXTENSION_MISSING");
    assert.deepEqual(await statusOf(page), { extension: null, permission: null, host: null, waiting: 0 });
  });
}
