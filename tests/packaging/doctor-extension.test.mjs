// What the doctor says of the extension in a browser's profiles, and of the policies that are in its way.

import assert from "node:assert/strict";
import { mkdir, readFile, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { registration, root } from "../lib/quillmark.mjs";
import { CHROMIUM_PROFILE, examine, FIREFOX_PROFILE, healthy, inChromium, inFirefox, problemsOf } from "./lib/health.mjs";

const [chromiumId] = registration.chromiumExtensions;
const [firefoxId] = registration.firefoxExtensions;
const OTHER_ID = "abcdefghijklmnopabcdefghijklmnop";

/** The verdict for Chromium, and the words of what is wrong, with this in its policies. */
async function withPolicy(computer, content) {
  await computer.write(join(computer.root, "etc/chromium/policies/managed/company.json"), content);
  const { browsers } = await examine(computer);
  return [browsers.Chromium, (await problemsOf(computer)).map(({ text }) => text).join("\n")];
}

const BLOCKS = '"NativeMessagingBlocklist": ["*"]';

test("Policy files are read as Chromium reads them, which leaves out those that it cannot read", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  for (const text of [
    `// one\n{ /* two \n */ ${BLOCKS}, }`, `{ "a": [1, 2,], ${BLOCKS}\n,\n}`, `\ufeff{ ${BLOCKS} }`, `{ "a": "line\nbreak", ${BLOCKS} }`,
    `{ "a": "http://x, ] // no comment /*", ${BLOCKS} }`, `{ "a": "\\",}", ${BLOCKS} }`,
    `{ "NativeMessagingBlocklist": [], ${BLOCKS} }`,
  ]) {
    const [verdict, words] = await withPolicy(computer, text);
    assert.equal(verdict, "cannot", text);
    assert.match(words, /company\.json forbids the signing program$/, text);
  }
  for (const text of [`{ ${BLOCKS},, }`, `{ "a": [,], ${BLOCKS} }`, `{ ${BLOCKS} } behind`, `{ 'a': 1, ${BLOCKS} }`, `{ ${BLOCKS}, "a": NaN }`]) {
    const [verdict, words] = await withPolicy(computer, text);
    assert.equal(verdict, "can", text);
    assert.match(words, /company\.json: it cannot be read as JSON, so that browsers leave out all of it$/, text);
  }
});

test("A policy file counts whatever its name ends with", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  await computer.write(join(computer.root, "etc/chromium/policies/managed/company.json.bak"), `{ ${BLOCKS} }`);
  assert.equal((await examine(computer)).verdict, "cannot");
});

test("What the doctor knows as the extension's permissions is what its manifests ask for", async () => {
  const source = await readFile(join(root, "packaging/quillmark_policy_files.py"), "utf8");
  const known = JSON.parse(`[${/^PERMISSIONS = \{(.*)\}$/m.exec(source)[1]}]`);
  const asked = new Set();
  for (const name of ["manifest.common.json", "manifest.chromium.json", "manifest.firefox.json"]) {
    const manifest = JSON.parse(await readFile(join(root, "extension", name), "utf8"));
    for (const permission of manifest.permissions ?? []) asked.add(permission);
  }
  assert.deepEqual(known.sort(), [...asked].sort());
});

test("Chromium's policies for extensions keep ours out, or let it through, as Chromium has it", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  const settings = (of) => ({ ExtensionSettings: of });
  for (const [policy, words] of [
    [{ ExtensionInstallBlocklist: [chromiumId] }, /forbids the extension$/],
    [settings({ "*": { installation_mode: "blocked" } }), /forbids the extension$/],
    [settings({ [`${OTHER_ID},${chromiumId}`]: { installation_mode: "removed" } }), /forbids the extension$/],
    [{ ExtensionAllowedTypes: ["theme"] }, /allows no extensions but of other types$/],
    [settings({ [chromiumId]: { blocked_permissions: ["storage", "tabs"] } }), /what it needs \(storage in blocked_permissions\)$/],
  ]) {
    const [verdict, said] = await withPolicy(computer, policy);
    assert.equal(verdict, "cannot", JSON.stringify(policy));
    assert.match(said, words);
    assert.match((await problemsOf(computer))[0].remedy, new RegExp(chromiumId));
  }
  for (const policy of [
    { ExtensionInstallBlocklist: ["*"], ExtensionInstallForcelist: [`${chromiumId};https://update.example/`] },
    settings({ "*": { installation_mode: "blocked" }, [chromiumId]: { installation_mode: "force_installed" } }),
    { ExtensionInstallBlocklist: [OTHER_ID] }, settings({ "*": { blocked_permissions: ["tabs"] } }), settings("none"), { ExtensionSettings: 1 },
  ]) {
    assert.deepEqual(await withPolicy(computer, policy), ["can", ""], JSON.stringify(policy));
  }
});

test("One profile in which the extension is on is enough; what is wrong in each is told when there is none", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  const second = join(computer.home, ".config/chromium/Profile 1/Preferences");
  await computer.write(second, { extensions: { settings: {} } });
  assert.equal((await examine(computer)).verdict, "can");
  const takenOut = { extensions: { settings: { [chromiumId]: { account_extension_type: 0 } } } };
  await computer.write(second, takenOut);
  await computer.write(join(computer.home, CHROMIUM_PROFILE), inChromium({ disable_reasons: 1 }));
  const texts = (await problemsOf(computer)).map(({ text }) => text.replace(/^.*chromium\//, ""));
  assert.deepEqual(texts, ["Default: the extension is switched off", "Profile 1: the extension is missing"]);
});

test("An extension whose folder is gone is told; the system's own is there in each profile", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  const profile = join(computer.home, CHROMIUM_PROFILE);
  await computer.write(profile, inChromium({ location: 4, path: "/gone/extension" }));
  const [{ text }] = await problemsOf(computer);
  assert.match(text, /the extension was loaded from \/gone\/extension, and is no longer there$/);
  const { key } = JSON.parse(await readFile(join(root, "extension/manifest.chromium.json"), "utf8"));
  await computer.write(join(computer.root, "usr/share/chromium/extensions/quillmark/manifest.json"), { key, name: "Quillmark" });
  for (const content of [inChromium({ location: 8, path: "/gone" }), { extensions: {} }]) {
    await computer.write(profile, content);
    assert.deepEqual(await problemsOf(computer), [], JSON.stringify(content));
  }
  await computer.write(profile, { extensions: { external_uninstalls: [chromiumId] } });
  assert.match((await problemsOf(computer))[0].text, /the extension was removed from it by hand$/);
  await rm(profile);
  assert.deepEqual(await problemsOf(computer), []);
});

test("A profile whose files are broken, or hold other things than they should, keeps the doctor from telling, and stops nothing", async (t) => {
  const computer = await healthy(t);
  await computer.write(join(computer.home, CHROMIUM_PROFILE), "{");
  await computer.write(join(computer.home, FIREFOX_PROFILE), "[]");
  assert.deepEqual((await examine(computer)).browsers, { Chromium: "unknown", Firefox: "unknown" });
  for (const odd of [{ extensions: [] }, { extensions: { settings: { [chromiumId]: 1 } } }, { extensions: { settings: { x: { path: 7 } } } }, []]) {
    await computer.write(join(computer.home, CHROMIUM_PROFILE), odd);
    await examine(computer);
  }
});

test("In Firefox what is missing may be a temporary add-on, of which no file tells; its names and ids are told from others", async (t) => {
  const computer = await healthy(t, { browsers: ["firefox-esr"] });
  const profile = join(computer.home, FIREFOX_PROFILE);
  await computer.write(profile, { addons: [] });
  assert.equal((await examine(computer)).verdict, "unknown");
  await computer.write(profile, inFirefox({ id: "other@example.org" }));
  const [{ text }] = await problemsOf(computer);
  assert.match(text, new RegExp(`the extension there has the id other@example\\.org, and .* registered for ${firefoxId}$`));
  await computer.write(profile, { addons: [] });
  await mkdir(join(computer.root, `usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/${firefoxId}`), { recursive: true });
  assert.equal((await examine(computer)).verdict, "can");
});

test("A profile below ~/.mozilla counts as one below ~/.config/mozilla", async (t) => {
  const computer = await healthy(t, { browsers: ["firefox-esr"] });
  await rm(join(computer.home, ".config/mozilla"), { recursive: true });
  const profile = join(computer.home, ".mozilla/firefox/old.default");
  await mkdir(profile, { recursive: true });
  await writeFile(join(profile, "extensions.json"), JSON.stringify(inFirefox({ active: false })));
  assert.match((await problemsOf(computer))[0].text, /old\.default: the extension is switched off$/);
});
