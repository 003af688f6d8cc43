// What an administrator has set, however it is spelled. These tests start the browser anew, so they come last.

import assert from "node:assert/strict";

import { ask, canSetPolicies, sleep, statusOf, waitFor } from "../../lib/browser-kit.mjs";
import { codeOrQuestion } from "../lib/attacker.mjs";

export default function ({ name, rig, attack }) {
  if (!canSetPolicies(name)) return;

  async function restartWith(t, policy) {
    await rig.setPolicy(policy);
    await rig.restartBrowser();
    t.after(() => rig.setPolicy({ deniedOrigins: [rig.deniedOrigin] }));
  }

  const becomesDenied = (page) => waitFor("the denial", async () => (await statusOf(page)).permission === "denied", { timeout: 10_000 });

  attack("a denied origin is denied from the first moment of the browser", async (t) => {
    const origin = await rig.freshOrigin(t);
    await restartWith(t, { deniedOrigins: [origin] });
    const page = await rig.page(t, { origin });
    const permissions = new Set();
    for (let i = 0; i < 20; i++) {
      permissions.add((await statusOf(page)).permission);
      await sleep(50);
    }
    permissions.delete(null); // before the extension is there at all
    assert.deepEqual([...permissions], ["denied"]);
  });

  attack("a denied origin is denied with a slash behind it, and in upper case", async (t) => {
    const [slash, upper] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    await restartWith(t, { deniedOrigins: [`${slash}/`, upper.toUpperCase()] });
    for (const origin of [slash, upper]) {
      const page = await rig.page(t, { origin });
      await becomesDenied(page);
      assert.equal(await codeOrQuestion(rig, origin, ask(page, "selectCertificate")), "ORIGIN_DENIED", origin);
    }
  });

  // Chromium hands out no value that is of another type than the schema says, and shows that on chrome://policy.
  const ofAnotherType = [
    ["a text in place of the list of denied origins", (origin) => ({ deniedOrigins: origin })],
    ["onlyAllowedOrigins as a text", () => ({ onlyAllowedOrigins: "true" })],
  ];
  for (const [words, policy] of [
    ...(name === "firefox" ? ofAnotherType : []),
    ["a denied pattern that is too wide to be one", () => ({ deniedOrigins: ["https://*.com/*"] })],
  ]) {
    attack(`${words} denies: what cannot be understood is no permission`, async (t) => {
      const origin = await rig.freshOrigin(t);
      await restartWith(t, policy(origin));
      const page = await rig.page(t, { origin });
      await becomesDenied(page);
      assert.equal(await codeOrQuestion(rig, origin, ask(page, "selectCertificate")), "ORIGIN_DENIED");
    });
  }
}
