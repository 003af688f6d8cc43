// The page holds the keyboard with a window of its own, and lets go of it in the middle of what the user types.

import { sleep } from "../../lib/browser-kit.mjs";
import { assertStruck, assertUnanswered, openCover, openQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("keys that were typed into a page's window, which closes under them, answer nothing", async (t) => {
    const question = await openQuestion(rig, t);
    await question.page.evaluate(() => (window.strike = (cover) => cover.close()));
    await openCover(rig, question.page, { left: 0, top: 60, width: 240, height: 300 });
    await sleep(1_500);
    await rig.user.hands.keys(["a", "Tab", "Return", "Tab", "Return", "Tab", "Return"], 250);
    await assertStruck(question.page);
    await assertUnanswered(rig, question);
  });

  attack("a question that loses the keyboard for a moment takes no answer in the second after it", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    await openCover(rig, question.page, { left: 0, top: 60, width: 240, height: 300 });
    await question.page.evaluate(() => window.cover.close());
    await sleep(250);
    await rig.user.hands.keys(["Tab", "Tab", "Return"], 60);
    await assertUnanswered(rig, question);
  });
}
