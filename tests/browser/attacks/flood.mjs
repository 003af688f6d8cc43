// One page sends more requests than anybody can answer.

import assert from "node:assert/strict";

import { gesture, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { openRawChannel } from "../lib/attacker.mjs";

const FLOOD = 6_000;

/** What another page may wait for its status, in milliseconds; and as often as long as without the flood, on a machine that is busy. */
const SOON = 1_000;
const SOON_TIMES = 50;

export default function ({ rig, attack }) {
  attack(`while ${FLOOD} requests of a page come, another page has its status soon`, async (t) => {
    const [flooding, quiet] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    const other = await rig.page(t, { origin: quiet });
    const measure = () => other.evaluate(async () => {
      const start = performance.now();
      const { status } = await import("./quillmark.js");
      await Promise.race([status(), new Promise((resolve) => setTimeout(resolve, 10_000))]);
      return Math.round(performance.now() - start);
    });
    await measure();
    const limit = Math.max(SOON, SOON_TIMES * (await measure()));
    const times = [];
    const page = await rig.page(t, { origin: flooding });
    await openRawChannel(page);
    await gesture(page);
    t.after(() => rig.reloadExtension());
    await page.evaluate((count) => {
      for (let id = 1; id <= count; id++) {
        window.raw.port.postMessage({ type: "request", id, operation: "selectCertificate", values: {}, timeout: 60_000 });
      }
    }, FLOOD);
    for (let i = 0; i < 3; i++) times.push(await measure());
    // Each that goes must not cost a word to each that stays.
    await page.evaluate((count) => {
      for (let id = 1; id <= count; id++) window.raw.port.postMessage({ type: "abort", id });
    }, FLOOD);
    for (let i = 0; i < 4; i++) {
      await sleep(400);
      times.push(await measure());
    }
    t.diagnostic(`status took ${times.join(", ")} ms`);
    assert.ok(Math.max(...times) < limit, `status took ${times.join(", ")} ms of ${limit}`);
    const counts = () => page.evaluate(() => {
      const codes = {};
      for (const { type, error } of window.raw.answers) codes[error?.code ?? type] = (codes[error?.code ?? type] ?? 0) + 1;
      return codes;
    });
    const refused = ({ TOO_MANY = 0, NOT_NOW = 0, ABORTED = 0 }) => TOO_MANY + NOT_NOW + ABORTED;
    await waitFor("the flood to be refused", async () => refused(await counts()) === FLOOD);
    const { TOO_MANY, progress = 0 } = await counts();
    assert.ok(TOO_MANY > FLOOD / 2, `${TOO_MANY} were too many`);
    assert.ok(progress < 200, `${progress} messages of progress`);
  });
}
