// A page that opens its document anew takes all listeners of its window away, those of the extension's script too.

import assert from "node:assert/strict";

import { assertRefused } from "../lib/attacker.mjs";
import { ask, askWithoutGesture, statusOf } from "../../lib/browser/rig.mjs";

export function documentOpenAttacks({ rig, attack }) {
  attack("a page that opens its document anew is served as before, and asks nothing without a click", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
    await page.evaluate(() => {
      const html = document.documentElement.outerHTML;
      document.open();
      document.write(html);
      document.close();
    });
    await page.waitForFunction("window.ask");
    assert.equal((await statusOf(page)).permission, "ask");
    await assertRefused(rig, origin, askWithoutGesture(page, "selectCertificate"), "NOT_NOW");
    const request = ask(page, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal((await request).code, "ORIGIN_DENIED");
  });
}
