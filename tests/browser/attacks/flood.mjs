// One page sends more requests than anybody can answer.

import assert from "node:assert/strict";

import { waitFor } from "../../program/lib/process.mjs";
import { openRawChannel } from "../lib/attacker.mjs";
import { gesture, statusOf } from "../lib/rig.mjs";

const FLOOD = 6_000;

export function floodAttacks({ rig, attack }) {
  attack(`while ${FLOOD} requests of a page come, another page has its status within a second`, async (t) => {
    const [flooding, quiet] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    const other = await rig.page(t, { origin: quiet });
    await statusOf(other);
    const page = await rig.page(t, { origin: flooding });
    await openRawChannel(page);
    await gesture(page);
    await page.evaluate((count) => {
      for (let id = 1; id <= count; id++) {
        window.raw.port.postMessage({ type: "request", id, operation: "selectCertificate", values: {}, timeout: 60_000 });
      }
    }, FLOOD);
    const times = [];
    for (let i = 0; i < 4; i++) {
      times.push(await other.evaluate(async () => {
        const start = performance.now();
        const { status } = await import("./quillmark.js");
        await Promise.race([status(), new Promise((resolve) => setTimeout(resolve, 10_000))]);
        return Math.round(performance.now() - start);
      }));
    }
    t.diagnostic(`status took ${times.join(", ")} ms`);
    assert.ok(Math.max(...times) < 1_000, `status took ${times.join(", ")} ms`);
    const counts = () => page.evaluate(() => {
      const codes = {};
      for (const { type, error } of window.raw.answers) codes[error?.code ?? type] = (codes[error?.code ?? type] ?? 0) + 1;
      return codes;
    });
    await waitFor("the flood to be refused", async () => ((await counts()).TOO_MANY ?? 0) >= FLOOD - 20);
    const { TOO_MANY, progress = 0 } = await counts();
    assert.equal(TOO_MANY, FLOOD - 20);
    assert.ok(progress < 200, `${progress} messages of progress`);
  });
}
