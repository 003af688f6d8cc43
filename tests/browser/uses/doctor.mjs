// What the doctor says of a browser is what the browser does. The tests start the browser anew, so they come last.

import assert from "node:assert/strict";
import { rm, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { ask, canSetPolicies, codeOf, runUnchecked } from "../../lib/browser-kit.mjs";

const POLICY = "/etc/chromium/policies/managed/quillmark-tests-programs";

export function doctorTests({ name, rig, browserTest, allowedPage }) {
  async function findings() {
    const env = { ...process.env, ...rig.world.desktop.env, ...rig.token.env, HOME: rig.home };
    const doctor = join(rig.program.folder, "quillmark-doctor");
    const { stdout } = await runUnchecked(doctor, ["--json", "--browser", name], { env });
    return JSON.parse(stdout).findings.map(({ level, text }) => `${level}: ${text}`).join("\n");
  }

  if (name !== "chromium" || !canSetPolicies(name)) return;

  browserTest("the doctor finds the extension in the profile, switched on", async () => {
    await rig.restartBrowser(); // what it has in memory it writes at its end
    assert.match(await findings(), /^ok: Chromium: the extension is on in the profile .*\/Default$/m);
  });

  for (const [what, text, words] of [
    ["a list with comments and one comma too many", '// ours\n{ "NativeMessagingBlocklist": ["*",], /* all */ }',
      /^failure: Chromium: the policy .* forbids the signing program$/m],
    ["programs of single users", '\ufeff{ "NativeMessagingUserLevelHosts": false }',
      /^failure: Chromium: the policy .* forbids programs of single users$/m],
  ]) {
    browserTest(`a policy that forbids ${what} is HOST_FORBIDDEN or HOST_MISSING, and the doctor names it`, async (t) => {
      await allowedPage(t);
      await writeFile(POLICY, text);
      t.after(async () => {
        await rm(POLICY);
        await rig.restartBrowser();
      });
      await rig.restartBrowser();
      const outcome = await ask(await rig.page(t), "selectCertificate");
      t.diagnostic(JSON.stringify(outcome));
      assert.match(codeOf(outcome), /^HOST_(FORBIDDEN|MISSING)$/);
      assert.match(await findings(), words);
    });
  }
}
