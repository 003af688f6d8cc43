// When to strike: what a page learns of the host and of others' requests.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, codeOf, statusOf, waitFor } from "../../lib/browser-kit.mjs";

export default function ({ rig, attack }) {
  attack("a page that is not allowed learns neither whether the host runs nor how many requests wait", async (t) => {
    const [allowed, curious] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    await rig.allow(allowed);
    const spy = await rig.page(t, { origin: curious });
    const page = await rig.page(t, { origin: allowed });
    const requests = [ask(page, "selectCertificate"), ask(page, "selectCertificate")];
    for (const request of requests) request.catch(() => {});
    await rig.user.certificateWindow();
    const told = await statusOf(page);
    assert.deepEqual([told.host, told.waiting], ["running", 2], "an allowed page is told");
    const { host, waiting } = await statusOf(spy);
    assert.deepEqual({ host, waiting }, { host: null, waiting: 0 });
    assert.equal(codeOf(await askWithoutGesture(spy, "status", [{ checkHost: true }])), "ORIGIN_DENIED");
  });

  attack("a page that is not allowed is not told how many come before it", async (t) => {
    const [first, second] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    const asking = await rig.page(t, { origin: first });
    ask(asking, "selectCertificate").catch(() => {});
    await rig.user.question(first);
    const page = await rig.page(t, { origin: second });
    const states = page.evaluate(async () => {
      const { selectCertificate } = await import("./quillmark.js");
      window.states = [];
      window.start = () => selectCertificate({ onProgress: (state) => window.states.push(state) }).catch(() => {});
    });
    await states;
    await page.bringToFront();
    await page.click("#gesture");
    await page.evaluate(() => void window.start());
    const told = await waitFor("a word about waiting", () => page.evaluate(() => window.states[0]));
    assert.deepEqual(told, { state: "waiting" });
  });
}
