// One page sends more requests than anybody can answer.

import assert from "node:assert/strict";

import { gesture, sleep, statusOf, waitFor } from "../../lib/browser-kit.mjs";
import { openRawChannel } from "../lib/attacker.mjs";

const FLOOD = 6_000;

export default function ({ rig, attack }) {
  attack(`while ${FLOOD} requests of a page come, another page has its status within a second`, async (t) => {
    const [flooding, quiet] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    const other = await rig.page(t, { origin: quiet });
    await statusOf(other);
    const page = await rig.page(t, { origin: flooding });
    await openRawChannel(page);
    await gesture(page);
    t.after(() => rig.reloadExtension());
    await page.evaluate((count) => {
      for (let id = 1; id <= count; id++) {
        window.raw.port.postMessage({ type: "request", id, operation: "selectCertificate", values: {}, timeout: 60_000 });
      }
    }, FLOOD);
    const times = [];
    const measure = async () => times.push(await other.evaluate(async () => {
        const start = performance.now();
        const { status } = await import("./quillmark.js");
        await Promise.race([status(), new Promise((resolve) => setTimeout(resolve, 10_000))]);
        return Math.round(performance.now() - start);
      }));
    for (let i = 0; i < 3; i++) await measure();
    // Each that goes must not cost a word to each that stays.
    await page.evaluate((count) => {
      for (let id = 1; id <= count; id++) window.raw.port.postMessage({ type: "abort", id });
    }, FLOOD);
    for (let i = 0; i < 4; i++) {
      await sleep(400);
      await measure();
    }
    t.diagnostic(`status took ${times.join(", ")} ms`);
    assert.ok(Math.max(...times) < 1_000, `status took ${times.join(", ")} ms`);
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
