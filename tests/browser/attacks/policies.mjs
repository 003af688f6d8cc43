// What an administrator has set, however it is spelled. These tests start the browser anew, so they come last.

import assert from "node:assert/strict";

import { sleep } from "../../program/lib/process.mjs";
import { codeOrQuestion } from "../lib/attacker.mjs";
import { ask, canSetPolicies, statusOf } from "../lib/rig.mjs";

export function policyAttacks({ name, rig, attack }) {
  if (!canSetPolicies(name)) return;

  async function restartWith(t, policy) {
    await rig.setPolicy(policy);
    await rig.restartBrowser();
    t.after(() => rig.setPolicy({ deniedOrigins: [rig.deniedOrigin] }));
  }

  attack("a denied origin is denied with a slash behind it, in upper case, and from the first moment", async (t) => {
    const origins = [await rig.freshOrigin(t), await rig.freshOrigin(t), await rig.freshOrigin(t)];
    const [slash, upper] = origins;
    await restartWith(t, { deniedOrigins: [`${slash}/`, upper.toUpperCase(), origins[2]] });
    const first = await rig.page(t, { origin: origins[2] });
    const permissions = new Set();
    for (let i = 0; i < 20; i++) {
      permissions.add((await statusOf(first)).permission);
      await sleep(50);
    }
    permissions.delete(null); // before the extension is there at all
    assert.deepEqual([...permissions], ["denied"], "from the first moment");
    for (const origin of [slash, upper]) {
      const page = await rig.page(t, { origin });
      assert.equal((await statusOf(page)).permission, "denied", origin);
      assert.equal(await codeOrQuestion(rig, origin, ask(page, "selectCertificate")), "ORIGIN_DENIED", origin);
    }
  });

  for (const [words, policy] of [
    ["a text in place of the list of denied origins", (origin) => ({ deniedOrigins: origin })],
    ["onlyAllowedOrigins as a text", () => ({ onlyAllowedOrigins: "true" })],
    ["a denied pattern that is too wide to be one", () => ({ deniedOrigins: ["https://*.com/*"] })],
  ]) {
    attack(`${words} denies: what cannot be understood is no permission`, async (t) => {
      const origin = await rig.freshOrigin(t);
      await restartWith(t, policy(origin));
      const page = await rig.page(t, { origin });
      await sleep(1_000);
      assert.equal((await statusOf(page)).permission, "denied");
      assert.equal(await codeOrQuestion(rig, origin, ask(page, "selectCertificate")), "ORIGIN_DENIED");
    });
  }
}
