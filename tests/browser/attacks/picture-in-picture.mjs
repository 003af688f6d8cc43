// A picture-in-picture document stands above all windows without taking the keyboard from the question.

import { gesture, sleep } from "../../lib/browser-kit.mjs";
import { assertStruck, assertUnanswered, openQuestion, placeOfOnce } from "../lib/attacker.mjs";

export default function ({ name, rig, attack }) {
  if (name !== "chromium") return; // Firefox has no documents in such windows, only videos, which see no click

  attack("a picture-in-picture window over the question wins no click", async (t) => {
    const question = await openQuestion(rig, t);
    const place = await placeOfOnce(rig, question);
    await gesture(question.page); // such a window opens after a click only
    await question.page.evaluate(async () => {
      window.covers = [];
      const cover = await documentPictureInPicture.requestWindow({ width: 800, height: 600 });
      cover.document.documentElement.style = "height: 100%; background: gold";
      cover.addEventListener("mousedown", () => {
        window.covers.push("mousedown");
        cover.close();
      });
    });
    // The click has brought the page's window to the front; the user goes back to the question, which asks again.
    await rig.world.desktop.key(question.id, "Shift_L");
    await sleep(1_500);
    await rig.user.hands.point(place);
    await rig.user.hands.click(2);
    await assertStruck(question.page);
    await assertUnanswered(rig, question);
  });
}
