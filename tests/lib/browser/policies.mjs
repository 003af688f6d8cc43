// What an administrator sets for the extension. Browsers read it when they start.

import { mkdir, rm, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import { run } from "../process.mjs";

/** Whether the tests can set an administrator's policies for this browser. */
export const canSetPolicies = (browser) => browser === "firefox" || process.getuid() === 0;

/** Sets `data` as the policy of the extension with these ids { chromium, firefox }, until `cleanup`. */
export async function setPolicy(browser, { ids, home, data, cleanup }) {
  if (browser === "firefox") {
    const policy = { name: ids.firefox, description: "Policy", type: "storage", data };
    await writeWithFolders(join(home, ".mozilla/managed-storage", `${ids.firefox}.json`), policy);
    return;
  }
  // Chromium reads them from a folder of all users only, and merges what it finds there. Under one name for all runs, what a
  // run left behind that was killed is written over by the next.
  const file = "/etc/chromium/policies/managed/quillmark-tests.json";
  const madeFolder = await writeWithFolders(file, { "3rdparty": { extensions: { [ids.chromium]: data } } });
  cleanup.add(async () => {
    await rm(file, { force: true });
    if (madeFolder) await run("rmdir", ["--parents", "--ignore-fail-on-non-empty", dirname(file)]);
  });
}

// Gives the uppermost folder that it had to make, if any.
async function writeWithFolders(file, content) {
  const made = await mkdir(dirname(file), { recursive: true });
  await writeFile(file, JSON.stringify(content));
  return made;
}
