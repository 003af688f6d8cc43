// Keys that were meant for the page, or that nobody has let go of, arrive at the question.

import assert from "node:assert/strict";

import { sleep } from "../../lib/browser-kit.mjs";
import { assertUnanswered, openQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  for (const key of ["space", "Return"]) {
    attack(`keys typed ahead, Tab and ${key} in turn, answer nothing`, async (t) => {
      const question = await openQuestion(rig, t);
      await rig.user.hands.keys(Array(12).fill(["Tab", key]).flat());
      await assertUnanswered(rig, question);
    });

    attack(`${key} held down answers nothing`, async (t) => {
      const question = await openQuestion(rig, t);
      await rig.user.hands.hold(key, 3_000);
      await assertUnanswered(rig, question);
    });
  }

  attack("a user who waits, and then presses a key, answers", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.hands.keys(["Tab", "Tab"]);
    await sleep(200);
    await rig.user.consentWindow(question.origin);
    await rig.user.hands.keys(["Escape"]);
    await rig.user.gone(question.id);
    assert.equal((await question.request).code, "ORIGIN_DENIED");
  });
}
