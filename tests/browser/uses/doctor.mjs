// What the doctor says of a browser is what the browser does. The tests start the browser anew, so they come late.

import assert from "node:assert/strict";
import { readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { ask, canSetPolicies, CHROMIUM_POLICY, codeOf, runUnchecked } from "../../lib/browser-kit.mjs";

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

  browserTest("an extension that is switched off, or taken out, is found by the doctor", async (t) => {
    const id = new URL(rig.browser.extensionUrl).host;
    const page = await rig.browser.newPage();
    await page.goto("chrome://extensions");
    await page.evaluate((identifier) => chrome.management.setEnabled(identifier, false), id);
    t.after(() => rig.restartBrowser());
    await rig.browser.close();
    assert.match(await findings(), /^failure: Chromium, profile .*\/Default: the extension is switched off$/m);
    await rig.startBrowser();
    await rig.browser.uninstallExtension(id);
    await rig.browser.close();
    assert.match(await findings(), /^failure: Chromium, profile .*\/Default: the extension is missing$/m);
  });

  for (const [what, text, code, words] of [
    ["all programs, with comments and one comma too many", '// ours\n{ "NativeMessagingBlocklist": ["*",], /* all */ }', "HOST_FORBIDDEN",
      /^failure: Chromium: the policy .* forbids the signing program$/m],
    ["programs of single users", '\ufeff{ "NativeMessagingUserLevelHosts": false }', "HOST_MISSING",
      /^failure: Chromium: the policy .* forbids programs of single users$/m],
  ]) {
    browserTest(`a policy that forbids ${what} is ${code}, and the doctor names it`, async (t) => {
      await allowedPage(t);
      const before = await readFile(CHROMIUM_POLICY);
      await writeFile(CHROMIUM_POLICY, text);
      t.after(async () => {
        await writeFile(CHROMIUM_POLICY, before);
        await rig.restartBrowser();
      });
      await rig.restartBrowser();
      assert.equal(codeOf(await ask(await rig.page(t), "selectCertificate")), code);
      assert.match(await findings(), words);
    });
  }
}
