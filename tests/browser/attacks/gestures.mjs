// Questions that no click of the user has led to.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, codeOf, gesture, waitFor, withdraw } from "../../lib/browser-kit.mjs";
import { assertRefused, codeOrQuestion } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  const select = (page) => askWithoutGesture(page, "selectCertificate");

  attack("a page in which nobody has clicked or typed opens no question", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    await page.bringToFront();
    await assertRefused(rig, origin, select(page), "NOT_NOW");
  });

  attack("a click that the page makes itself is none, and neither is Escape or Shift", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    await page.bringToFront();
    await page.evaluate(() => {
      const place = document.querySelector("#gesture");
      place.click();
      place.dispatchEvent(new MouseEvent("click", { bubbles: true, isTrusted: true }));
      place.dispatchEvent(new KeyboardEvent("keydown", { key: "a", bubbles: true }));
      dispatchEvent(new MouseEvent("click"));
    });
    await page.keyboard.press("Escape");
    await page.keyboard.press("Shift");
    await assertRefused(rig, origin, select(page), "NOT_NOW");
  });

  attack("a page in a tab that is not in sight opens no question", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    await gesture(page);
    const other = await rig.page(t);
    await other.bringToFront();
    await waitFor("the tab to be hidden", () => page.evaluate(() => document.visibilityState === "hidden"));
    await assertRefused(rig, origin, select(page), "NOT_NOW");
  });

  attack("a frame in which nobody has clicked opens no question, though the page around it was clicked", async (t) => {
    const { page, frame, origin } = await rig.framedPage(t);
    await gesture(page);
    await assertRefused(rig, origin, select(frame), "NOT_NOW");
  });

  attack("a frame that was denied and loads itself anew opens no second question", async (t) => {
    const { page, frame, origin } = await rig.framedPage(t);
    const request = ask(frame, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    await page.evaluate((src) => (document.querySelector("iframe").src = `${src}/?again`), origin);
    const again = await rig.frameOf(page, `${origin}/?again`);
    await assertRefused(rig, origin, ask(again, "selectCertificate"), "NOT_NOW");
  });

  attack("a site that withdraws its question and asks again, on and on, is stopped", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    let outcome = "";
    for (let i = 0; i < 3 && outcome !== "NOT_NOW"; i++) {
      const request = ask(page, "selectCertificate");
      outcome = await codeOrQuestion(rig, origin, request);
      await withdraw(page);
      await request;
    }
    assert.equal(outcome, "NOT_NOW");
  });

  attack("many origins together open ten questions a minute at most", async (t) => {
    const outcomes = [];
    for (let i = 0; i < 11; i++) {
      const { origin, page } = await rig.freshPage(t);
      const request = ask(page, "selectCertificate");
      outcomes.push(await codeOrQuestion(rig, origin, request));
      await withdraw(page);
      await request;
      // Firefox opens the next page in the window in front, also when that is just closing.
      await waitFor("the question to go", async () => (await rig.user.questions(origin)).length === 0);
      await page.close();
      if (outcomes.at(-1) === "NOT_NOW") break;
    }
    await rig.reloadExtension(); // for the tests that follow
    assert.equal(outcomes.at(-1), "NOT_NOW", outcomes.join(", "));
  });
}
