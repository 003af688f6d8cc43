// A page that opens its document anew takes all listeners of its window away, those of the extension's script too.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, ready, statusOf } from "../../lib/browser-kit.mjs";
import { assertRefused } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a page that opens its document anew is served as before, and asks nothing without a click", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    await page.evaluate(() => {
      const html = document.documentElement.outerHTML;
      document.open();
      document.write(html);
      document.close();
    });
    await ready(page);
    assert.equal((await statusOf(page)).permission, "ask");
    await assertRefused(rig, origin, askWithoutGesture(page, "selectCertificate"), "NOT_NOW");
    const request = ask(page, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal((await request).code, "ORIGIN_DENIED");
  });
}
