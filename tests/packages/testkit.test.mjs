// The test kit as a stranger has it: packed, installed into an empty folder, and used there.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdir, readdir, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { after, before, test } from "node:test";

import { Cleanup, Desktop, runUnchecked, waitFor } from "../lib/kit.mjs";
import { bin, root } from "../lib/quillmark.mjs";
import { runStrangersTest, strangersFolder } from "./lib/stranger.mjs";

const QUILLMARK = { QUILLMARK_PRODUCT: join(root, "tests/lib/quillmark.mjs"), QM_BIN: bin };

const cleanup = new Cleanup();
let folder;
before(async () => (folder = await strangersFolder(cleanup)));
after(() => cleanup.run());

async function passes(file, env) {
  const { code, output, left } = await runStrangersTest(folder, file, { ...QUILLMARK, ...env });
  assert.equal(code, 0, output);
  assert.match(output, /^# pass [1-9]/m);
  assert.match(output, /^# skipped 0$/m);
  assert.deepEqual(left, [], "what the kit has left behind");
}

for (const browser of ["chromium", "firefox"]) {
  test(`A stranger's page signs in ${browser}, and OpenSSL verifies it`, () => passes("signs.test.mjs", { QUILLMARK_BROWSER: browser }));

  test(`Each fault comes to a stranger's page in ${browser} as the documents say`, () =>
    passes("faults.test.mjs", { QUILLMARK_BROWSER: browser }));
}

test("A stranger's own puppeteer and Playwright start Chromium, and the user is there", () => passes("launches.test.mjs"));

test("On a display that is there already, the kit brings none", async () => {
  const desktop = await Desktop.start(cleanup);
  await passes("signs.test.mjs", { QUILLMARK_BROWSER: "chromium", QUILLMARK_DISPLAY: desktop.display });
});

/** What a script in the stranger's folder that starts a kit with these options says, in an environment like this. */
async function says(options, env) {
  const script = `import { startKit } from "quillmark-testkit";
    await startKit(${options}).then((kit) => kit.stop(), ({ name, message }) => console.log(name, message));`;
  const surroundings = { cwd: folder, env: { ...process.env, ...env } };
  const { stdout } = await runUnchecked(process.execPath, ["--input-type=module", "-e", script], surroundings);
  return stdout.toString().trim();
}

test("What is missing on a computer is told in one error, with the whole line that installs it", async () => {
  const bare = await says("{ browser: 'firefox', product: {} }", { PATH: dirname(process.execPath).replace("/usr/bin", "/nowhere") });
  assert.match(bare, /^Error The test kit misses on this computer: softhsm2-util, pkcs11-tool, .*Xvfb, openbox, firefox-esr\./);
  assert.match(bare, /sudo apt install softhsm2 opensc openssl xdotool x11-utils imagemagick util-linux xvfb openbox firefox-esr$/);
});

test("Options that no kit can have are a TypeError, and start nothing", async () => {
  for (const [options, words] of [
    ["{ browser: 'opera' }", /browser has to be one of chromium, firefox/], ["{ pin: '12' }", /pin has to be/],
    ["{ browser: 'firefox', launch: false }", /Only Chromium/],
    ["{ certificates: [{ cn: '' }] }", /cn has to be/], ["{ certificates: [{ email: 'a@b,DNS:c' }] }", /no e-mail address/],
    ["{ certificates: [{ from: 'soon' }] }", /no date/],
  ]) {
    assert.match(await says(options), new RegExp(`^TypeError .*${words.source}`));
  }
});

test("A kit whose process is interrupted leaves nothing behind", async () => {
  const temporary = join(folder, "interrupted");
  await mkdir(temporary);
  const script = join(folder, "interrupted.mjs");
  await writeFile(script, `import { startKit } from "quillmark-testkit";
    import { product } from "./page.mjs";
    console.log((await startKit({ product })).display);
    setInterval(() => {}, 1000);`);
  const env = { ...process.env, ...QUILLMARK, TMPDIR: temporary };
  const child = spawn(process.execPath, [script], { cwd: folder, env, stdio: ["ignore", "pipe", "inherit"] });
  cleanup.addChild(child);
  const ended = new Promise((resolve) => child.once("exit", resolve));
  const started = new Promise((resolve) => child.stdout.once("data", (line) => resolve(line.toString().trim())));
  const display = await Promise.race([started, ended.then((code) => assert.fail(`It ended with ${code}`))]);
  assert.equal((await runUnchecked("xprop", ["-root", "-display", display])).code, 0);
  child.kill("SIGINT");
  assert.equal(await ended, 130);
  assert.deepEqual(await readdir(temporary), []);
  await waitFor("the display to end", async () => (await runUnchecked("xprop", ["-root", "-display", display])).code !== 0);
});
