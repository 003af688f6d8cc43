// A page's window that fills the screen hides everything, and is gone with the first half of a double click.

import { sleep } from "../../lib/browser-kit.mjs";
import { assertStruck, assertUnanswered, openCover, openQuestion, placeOfOnce } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a question under a window that fills the screen takes no answer when that window goes", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    const place = await placeOfOnce(rig, question);
    await openCover(rig, question.page, { left: 180, top: 10, width: 680, height: 750 });
    await question.page.evaluate(() => (window.strike = (cover) => cover.document.documentElement.requestFullscreen()));
    // On the edge that stands out, which also brings the window to the front.
    await rig.user.hands.point({ ...place, x: -12 });
    await rig.user.hands.click();
    await question.page.waitForFunction(() => window.cover.document.fullscreenElement);
    await sleep(1_500);
    await question.page.evaluate(() => {
      window.covers = [];
      window.strike = (cover) => cover.close();
    });
    await rig.user.hands.point(place);
    await rig.user.hands.click(2);
    await assertStruck(question.page);
    await assertUnanswered(rig, question);
  });
}
