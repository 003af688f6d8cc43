// Questions that no click of the user has led to.

import assert from "node:assert/strict";

import { waitFor } from "../../lib/process.mjs";
import { assertRefused, codeOrQuestion } from "../lib/attacker.mjs";
import { ask, askWithoutGesture, codeOf, framing, gesture } from "../../lib/browser/rig.mjs";

export function gestureAttacks({ rig, attack }) {
  const select = (page) => askWithoutGesture(page, "selectCertificate");

  attack("a page in which nobody has clicked or typed opens no question", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
    await page.bringToFront();
    await assertRefused(rig, origin, select(page), "NOT_NOW");
  });

  attack("a click that the page makes itself is none, and neither is Escape or Shift", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
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
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
    await gesture(page);
    const other = await rig.page(t);
    await other.bringToFront();
    await waitFor("the tab to be hidden", () => page.evaluate(() => document.visibilityState === "hidden"));
    await assertRefused(rig, origin, select(page), "NOT_NOW");
  });

  /** A page with a frame of another origin: { page, frame, origin } with the frame's origin. */
  async function framed(t) {
    const [around, origin] = [await rig.freshOrigin(t), await rig.freshOrigin(t, "127.0.0.1")];
    rig.addPage(`/around-${new URL(origin).port}`, framing(origin));
    const page = await rig.page(t, { origin: around, path: `/around-${new URL(origin).port}` });
    return { page, origin, frame: await frameOf(page, origin) };
  }
  async function frameOf(page, origin) {
    const frame = await waitFor("the frame", () => page.frames().find((each) => each.url().startsWith(origin)));
    await frame.waitForFunction("window.ask");
    return frame;
  }

  attack("a frame in which nobody has clicked opens no question, though the page around it was clicked", async (t) => {
    const { page, frame, origin } = await framed(t);
    await gesture(page);
    await assertRefused(rig, origin, select(frame), "NOT_NOW");
  });

  attack("a frame that was denied and loads itself anew opens no second question", async (t) => {
    const { page, frame, origin } = await framed(t);
    const request = ask(frame, "selectCertificate");
    await rig.user.consent(origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    await page.evaluate((src) => (document.querySelector("iframe").src = `${src}/?again`), origin);
    const again = await waitFor("the frame anew", () => page.frames().find((each) => each.url().includes("?again")));
    await again.waitForFunction("window.ask");
    await assertRefused(rig, origin, ask(again, "selectCertificate"), "NOT_NOW");
  });

  attack("a site that withdraws its question and asks again, on and on, is stopped", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
    let outcome = "";
    for (let i = 0; i < 3 && outcome !== "NOT_NOW"; i++) {
      const request = ask(page, "selectCertificate");
      outcome = await codeOrQuestion(rig, origin, request);
      await page.evaluate(() => window.withdrawal.abort());
      await request;
    }
    assert.equal(outcome, "NOT_NOW");
  });

  attack("many origins together open ten questions a minute at most", async (t) => {
    const outcomes = [];
    for (let i = 0; i < 11; i++) {
      const origin = await rig.freshOrigin(t);
      const page = await rig.page(t, { origin });
      const request = ask(page, "selectCertificate");
      outcomes.push(await codeOrQuestion(rig, origin, request));
      await page.evaluate(() => window.withdrawal.abort());
      await request;
      await page.close();
      if (outcomes.at(-1) === "NOT_NOW") break;
    }
    await rig.reloadExtension(); // for the tests that follow
    assert.equal(outcomes.at(-1), "NOT_NOW", outcomes.join(", "));
  });
}
