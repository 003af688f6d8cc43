// A site that is open twice has two tries.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, codeOf, gesture, ready } from "../../lib/browser-kit.mjs";
import { assertRefused, openQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a denial in one window of a site counts in its other window", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const popup = new Promise((resolve) => page.once("popup", resolve));
    await page.evaluate(() => void open("/", "second", "left=0,top=0,width=400,height=300"));
    const second = await popup;
    await ready(second);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    await assertRefused(rig, origin, ask(second, "selectCertificate"), "NOT_NOW");
    await second.close();
  });

  attack("two windows that ask at once open one question, and its denial ends both", async (t) => {
    const question = await openQuestion(rig, t);
    const popup = new Promise((resolve) => question.page.once("popup", resolve));
    await question.page.evaluate(() => void open("/", "second", "left=0,top=0,width=230,height=300"));
    const second = await popup;
    await ready(second);
    await gesture(second);
    const other = askWithoutGesture(second, "selectCertificate");
    await rig.user.consent(question.origin, "deny");
    await assertRefused(rig, question.origin, other, "NOT_NOW", "ORIGIN_DENIED");
    await second.close();
  });
}
