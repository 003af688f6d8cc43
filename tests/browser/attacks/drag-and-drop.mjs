// What is dragged from a page's window onto the question is let go over an answer.

import assert from "node:assert/strict";

import { sleep } from "../../lib/browser-kit.mjs";
import { assertUnanswered, openCover, openQuestion, placeOfOnce } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a link that is dropped onto the question is no answer, and puts no other page into its window", async (t) => {
    const question = await openQuestion(rig, t);
    const to = await placeOfOnce(rig, question);
    await openCover(rig, question.page, { left: 0, top: 100, width: 230, height: 400 });
    await question.page.evaluate(() => {
      window.dragged = false;
      const { body } = window.cover.document;
      body.innerHTML = `<a href="/dropped" style="position: fixed; inset: 0; background: gold">Drag this</a>`;
      body.addEventListener("dragstart", () => (window.dragged = true));
    });
    await rig.user.consentWindow(question.origin).catch(() => {});
    const from = { id: to.id, x: -120, y: 300 };
    await rig.user.hands.drag(from, to);
    assert.ok(await question.page.evaluate(() => window.dragged), "the link was dragged");
    await sleep(500);
    assert.equal(await rig.extension.consentPages(), 1);
    await assertUnanswered(rig, question);
  });
}
