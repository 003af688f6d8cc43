// The page goes away between the question and the answer, and perhaps comes back.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, codeOf, ready, statusOf, waitFor } from "../../lib/browser-kit.mjs";
import { assertRefused, openQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a question goes with its page, and the page that follows has neither its answer nor its click", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    await question.page.goto(`${question.origin}/?next`);
    await ready(question.page);
    await rig.user.gone(question.id);
    assert.deepEqual(await rig.program.running(), []);
    assert.equal((await statusOf(question.page)).permission, "ask");
    await assertRefused(rig, question.origin, askWithoutGesture(question.page, "selectCertificate"), "NOT_NOW");
  });

  attack("a page that was denied, goes away and comes back from the browser's cache is still denied", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    await page.evaluate(() => addEventListener("pageshow", (event) => (window.cameBack = event.persisted)));
    await page.goto(`${origin}/?next`);
    await page.evaluate(() => void setTimeout(() => history.back()));
    const kept = await waitFor("the page to come back", () =>
      page.evaluate(() => !location.search && document.readyState === "complete" && window.ask && [window.cameBack === true]).catch(() => false));
    t.diagnostic(`from the cache: ${kept[0]}`);
    await assertRefused(rig, origin, ask(page, "selectCertificate"), "ORIGIN_DENIED", "NOT_NOW");
  });
}
