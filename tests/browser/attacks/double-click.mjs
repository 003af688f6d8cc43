// The page covers the window with one of its own, and takes that away between the two clicks of a double click.

import { sleep } from "../../lib/browser-kit.mjs";
import { assertStruck, assertUnanswered, openCover, openQuestion, placeOfOnce } from "../lib/attacker.mjs";

export default function ({ name, rig, attack }) {
  // Firefox's question is a dialog, which the window manager keeps above the browser's other windows.
  const canCover = name === "chromium";

  attack("the second half of a double click on a window that covered the question is no answer", async (t) => {
    const question = await openQuestion(rig, t);
    const place = await placeOfOnce(rig, question);
    await question.page.evaluate(() => (window.strike = (cover) => cover.close()));
    await openCover(rig, question.page, { left: 180, top: 10, width: 680, height: 750 });
    await sleep(1_500);
    await rig.user.hands.point(place);
    await rig.user.hands.click(2);
    if (canCover) await assertStruck(question.page);
    await assertUnanswered(rig, question);
  });

  attack("a page that moves its own window over the question and away again wins no click", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    const place = await placeOfOnce(rig, question);
    await openCover(rig, question.page, { left: 0, top: 0, width: 230, height: 300 });
    await question.page.evaluate(() => {
      window.cover.moveTo(180, 10);
      window.cover.resizeTo(680, 750);
      window.strike = (cover) => {
        cover.resizeTo(230, 300);
        cover.moveTo(0, 0);
      };
    });
    await sleep(1_500);
    await rig.user.hands.point(place);
    await rig.user.hands.click(2);
    if (canCover) await assertStruck(question.page);
    await assertUnanswered(rig, question);
  });
}
