// The browser's own box, whether the user wants to leave the page, stands between the question and the keys.

import { sleep, waitFor } from "../../lib/browser-kit.mjs";
import { assertUnanswered, openQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a box that asks whether to leave the page, and is answered by keys, leaves the question unanswered", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    let box;
    question.page.once("dialog", (dialog) => (box = dialog));
    await question.page.evaluate(() => {
      window.onbeforeunload = (event) => {
        event.preventDefault();
        return (event.returnValue = "Stay");
      };
      setTimeout(() => (location.href = "/elsewhere"));
    });
    await waitFor("the box", () => box);
    await rig.user.hands.keys(["Tab", "Tab", "Tab", "Return"]);
    await box.dismiss().catch(() => {}); // the keys may have answered it
    await rig.user.hands.keys(["Return"]);
    await sleep(300);
    await assertUnanswered(rig, question);
  });
}
