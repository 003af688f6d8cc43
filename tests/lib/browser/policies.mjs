// What an administrator sets for the extension. Browsers read it when they start.

import { mkdir, rm, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import { run } from "../process.mjs";

/** Whether the tests can set an administrator's policies for this browser. */
export const canSetPolicies = (browser) => browser === "firefox" || process.getuid() === 0;

/**
 * Where Chromium's are read, and merged with others, for all users. Under one name for all runs, what a run left behind that was
 * killed is written over by the next.
 */
export const CHROMIUM_POLICY = "/etc/chromium/policies/managed/quillmark-tests.json";

/** Sets `data` as the policy of the extension with these ids { chromium, firefox }, until `cleanup`. */
export async function setPolicy(browser, { ids, home, data, cleanup }) {
  if (browser === "firefox") {
    const policy = { name: ids.firefox, description: "Policy", type: "storage", data };
    await writeWithFolders(join(home, ".mozilla/managed-storage", `${ids.firefox}.json`), policy);
    return;
  }
  const madeFolder = await writeWithFolders(CHROMIUM_POLICY, { "3rdparty": { extensions: { [ids.chromium]: data } } });
  cleanup.add(async () => {
    await rm(CHROMIUM_POLICY, { force: true });
    if (madeFolder) await run("rmdir", ["--parents", "--ignore-fail-on-non-empty", dirname(CHROMIUM_POLICY)]);
  });
}

// Gives the uppermost folder that it had to make, if any.
async function writeWithFolders(file, content) {
  const made = await mkdir(dirname(file), { recursive: true });
  await writeFile(file, JSON.stringify(content));
  return made;
}
