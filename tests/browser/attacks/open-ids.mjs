// A page uses the number of a request that is open for another one.

import assert from "node:assert/strict";

import { gesture, waitFor } from "../../lib/browser-kit.mjs";
import { openRawChannel } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  attack("a request with the number of an open one is refused, and the open one ends with its page", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    await openRawChannel(page);
    await gesture(page);
    const send = (operation) => page.evaluate((name) => {
      window.raw.port.postMessage({ type: "request", id: 7, operation: name, values: {}, timeout: 60_000 });
    }, operation);
    await send("selectCertificate");
    const id = await rig.user.question(origin);
    await send("selectCertificate");
    await send("status");
    const answers = await waitFor("an answer to the second", () => page.evaluate(() => {
      const types = window.raw.answers.map(({ type }) => type).filter((type) => type !== "progress");
      return types.length > 0 && types;
    }));
    await page.close();
    await rig.user.gone(id);
    assert.equal((await rig.user.questions(origin)).length, 0);
    assert.ok(answers.every((type) => type === "error"), answers.join(", "));
  });
}
