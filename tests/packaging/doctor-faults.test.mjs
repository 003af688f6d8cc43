// Made-up computers with a fault, or with two: the doctor names each, and its remedy works when it is followed to the letter.
// docs/troubleshooting.md has the same table for people.

import assert from "node:assert/strict";
import { chmod, copyFile, mkdir, rm } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { registration } from "../lib/quillmark.mjs";
import { SOFTHSM } from "../lib/kit.mjs";
import { GOOD_TOKENS } from "./lib/computer.mjs";
import { CHROMIUM_PROFILE, examine, FIREFOX_PROFILE, healthy, inChromium, inFirefox, runs } from "./lib/health.mjs";
import { follow } from "./lib/remedies.mjs";

const [chromiumId] = registration.chromiumExtensions;
const [firefoxId] = registration.firefoxExtensions;
const OTHER_ID = "abcdefghijklmnopabcdefghijklmnop";
const NO_MODULE = { canSign: 0, modules: [{ name: "p11-kit-trust", used: true, slots: [] }] };
const BROKEN_MODULE = { canSign: 0, modules: [{ name: "maker", used: false, reason: "not enabled for QMTokenDriver, or not read for this user", slots: [] }] };
const reinstalled = (computer) => `cp '${computer.program}'/* '${computer.installed}'`;

const chromiumPolicy = (computer, content) => computer.write(join(computer.root, "etc/chromium/policies/managed/company.json"), content);
const firefoxPolicy = (computer, content) => computer.write(join(computer.root, "etc/firefox/policies/policies.json"), content);
const profile = (computer, content) => computer.write(join(computer.home, CHROMIUM_PROFILE), content);
const firefoxProfile = (computer, content) => computer.write(join(computer.home, FIREFOX_PROFILE), content);
const settings = (computer, content) => computer.write(join(computer.installed, "QMHostSettings.json"), content);

/**
 * By name: what brings the fault about; the words by which the doctor names it; and how its remedy is followed where it is
 * words (`by`) or has apt install something (`apt`).
 */
const FAULTS = {
  "Chromium has no registration": {
    fault: (computer) => rm(computer.userManifest("chromium")),
    words: /^Chromium: the signing program is not registered$/,
  },
  "Firefox's registration names a program that is gone": {
    fault: (computer) => computer.changeManifest("firefox", { path: "/gone/quillmark-host" }),
    words: /^Firefox: .* names \/gone\/quillmark-host, which is not there$/,
  },
  "a Chromium was started with a folder of its own": {
    fault: (computer) => runs(computer, "chromium"),
    words: /^Chromium runs with --user-data-dir=.*, and finds no signing program there$/,
  },
  "the launcher may not be executed": {
    fault: (computer) => chmod(join(computer.installed, "quillmark-host"), 0o644),
    words: /^Chromium: .*quillmark-host may not be executed$/,
  },
  "a user's old registration hides the one for all users": {
    fault: async (computer) => {
      await computer.tool("quillmark-browsers", "register", "--system");
      await computer.changeManifest("chromium", { path: "/gone/quillmark-host" });
    },
    words: /^Chromium: .* which is not there, and hides the registration for all users$/,
  },
  "Chromium's registration is for another extension": {
    fault: (computer) => computer.changeManifest("chromium", { allowed_origins: [`chrome-extension://${OTHER_ID}/`] }),
    words: new RegExp(`^Chromium: .* is for the extension chrome-extension://${OTHER_ID}/, not for chrome-extension://${chromiumId}/$`),
  },
  "somebody else's file is in the registration's place": {
    fault: (computer) => computer.write(computer.userManifest("chromium"), { name: "quillmark.host", description: "x" }),
    words: /^Chromium: .* is not Quillmark's$/,
  },
  "a policy with comments forbids all programs": {
    fault: (computer) => chromiumPolicy(computer, '// ours\n{ "NativeMessagingBlocklist": ["*",], /* all */ }'),
    words: /^Chromium: the policy .*company\.json forbids the signing program$/,
    by: (computer) => chromiumPolicy(computer, '{ "NativeMessagingBlocklist": ["*"], "NativeMessagingAllowlist": ["quillmark.host"] }'),
  },
  "a policy forbids programs of single users": {
    fault: (computer) => chromiumPolicy(computer, { NativeMessagingUserLevelHosts: false }),
    words: /^Chromium: the policy .*company\.json forbids programs of single users$/,
    // Now it is installed twice, and the doctor says how the user's own copy is deleted.
    by: async (computer) => {
      const { problems } = await bad(computer);
      await follow(computer, problems.find(({ check }) => check === "installation").command);
      computer.installed = join(computer.root, "usr/lib/quillmark");
    },
  },
  "a policy forbids extensions to start programs": {
    fault: (computer) => chromiumPolicy(computer, { ExtensionSettings: { "*": { blocked_permissions: ["nativeMessaging"] } } }),
    words: /^Chromium: the policy .*company\.json forbids the extension what it needs \(nativeMessaging in blocked_permissions\)$/,
    by: (computer) => chromiumPolicy(computer, { ExtensionSettings: {
      "*": { blocked_permissions: ["nativeMessaging"] }, [chromiumId]: { allowed_permissions: ["nativeMessaging"] },
    } }),
  },
  "a policy forbids all extensions": {
    fault: (computer) => chromiumPolicy(computer, { ExtensionInstallBlocklist: ["*"] }),
    words: /^Chromium: the policy .*company\.json forbids the extension$/,
    by: (computer) => chromiumPolicy(computer, { ExtensionInstallBlocklist: ["*"], ExtensionInstallAllowlist: [chromiumId] }),
  },
  "the extension is switched off in Chromium": {
    fault: (computer) => profile(computer, inChromium({ disable_reasons: [1] })),
    words: /^Chromium, profile .*Default: the extension is switched off$/,
    by: (computer) => profile(computer, inChromium()),
  },
  "the extension is missing in Chromium": {
    fault: (computer) => profile(computer, { extensions: { settings: {} } }),
    words: /^Chromium, profile .*Default: the extension is missing$/,
    by: (computer) => profile(computer, inChromium()),
  },
  "the extension has another id in Chromium": {
    fault: (computer) => profile(computer, inChromium({}, OTHER_ID)),
    words: new RegExp(`^Chromium, profile .*Default: the extension there has the id ${OTHER_ID}, and .* registered for ${chromiumId}$`),
    by: (computer) => profile(computer, inChromium()),
  },
  "the extension is switched off in Firefox": {
    fault: (computer) => firefoxProfile(computer, inFirefox({ active: false, userDisabled: true })),
    words: /^Firefox, profile .*abc\.default-esr: the extension is switched off$/,
    by: (computer) => firefoxProfile(computer, inFirefox()),
  },
  "a policy forbids the extension in Firefox": {
    fault: (computer) => firefoxPolicy(computer, { policies: { ExtensionSettings: { "*": { installation_mode: "blocked" } } } }),
    words: /^Firefox: the policy .*policies\.json forbids the extension$/,
    by: (computer) => firefoxPolicy(computer, { policies: { ExtensionSettings: {
      "*": { installation_mode: "blocked" }, [firefoxId]: { installation_mode: "allowed" },
    } } }),
  },
  "there is no display": {
    fault: (computer) => (computer.more = {}),
    words: /^There is no display/,
    by: (computer) => (computer.more = { DISPLAY: ":stand-in" }),
  },
  "the settings name a driver that is gone": {
    fault: (computer) => settings(computer, { TokenDriverFullPath: "/gone/module.so" }),
    words: /^The token driver \/gone\/module\.so is not there$/,
  },
  "the driver is damaged": {
    fault: (computer) => computer.write(join(computer.installed, "QMTokenDriver.so"), "no library"),
    words: /^The token driver .* cannot be loaded: /,
  },
  "others may write in the working folder": {
    fault: (computer) => chmod(computer.userFolder, 0o777),
    words: /can be changed by others/,
  },
  "pcscd does not run": {
    fault: (computer) => rm(join(computer.root, "run/pcscd/pcscd.comm")),
    words: /^The service for card readers \(pcscd\) does not run/,
    apt: () => "exit 0",
  },
  "p11-kit knows no module": {
    fault: (computer) => computer.setTokens(NO_MODULE),
    words: /^p11-kit knows no module for tokens$/,
    apt: async (computer) => {
      await computer.write(join(computer.folder, "good.json"), GOOD_TOKENS);
      return `[ "$*" = "install opensc" ] && cp '${computer.folder}/good.json' '${computer.tokens}'`;
    },
  },
  "a module that p11-kit is told of cannot be loaded": {
    fault: async (computer) => {
      await computer.write(join(computer.home, ".config/pkcs11/modules/maker.module"), "module: /gone/maker.so\n");
      await computer.setTokens({ ...GOOD_TOKENS, modules: [...GOOD_TOKENS.modules, ...BROKEN_MODULE.modules] });
    },
    words: /^The module maker is not used: \/gone\/maker\.so, which .*maker\.module names, is not there$/,
    by: (computer) => assert.rejects(computer.read(join(computer.home, ".config/pkcs11/modules/maker.module")), /ENOENT/)
      .then(() => computer.setTokens(GOOD_TOKENS)),
  },
  "a token maker's module has the driver's name": {
    fault: (computer) => copyFile(SOFTHSM, join(computer.installed, "QMTokenDriver.so")),
    words: /QMTokenDriver\.so is the module of a token's maker, whose tokens cannot be looked at/,
  },
  "a token maker's module is in the driver's place": {
    fault: (computer) => settings(computer, { TokenDriverFullPath: SOFTHSM }),
    words: /is the module of a token's maker, whose tokens cannot be looked at/,
  },
};

/** The same where the Debian package is installed. */
const FAULTS_OF_PACKAGE = {
  "the program of the package is gone": {
    fault: (computer) => rm(join(computer.installed, "QMChromeExtHost")),
    words: /^Started as Chromium would, the signing program ends without an answer, with status 12[67]$/,
    apt: reinstalled,
  },
  "the administrator's settings are no JSON": {
    fault: (computer) => computer.write(join(computer.root, "etc/quillmark/QMHostSettings.json"), "{ nothing"),
    words: /etc\/quillmark\/QMHostSettings\.json is no JSON object/,
  },
  "a damaged driver in the working folder hides the package's": {
    fault: (computer) => computer.write(join(computer.userFolder, "QMTokenDriver.so"), "no library"),
    words: /\.local\/share\/quillmark\/QMTokenDriver\.so cannot be loaded/,
  },
  "an older copy for one user stands before the package": {
    fault: (computer) => computer.install(),
    words: /^Quillmark is installed twice/,
  },
};

async function packaged(t) {
  const computer = await healthy(t);
  await computer.tool("quillmark-browsers", "unregister");
  await rm(computer.userFolder, { recursive: true });
  await computer.install("--system", "--root", computer.root);
  await computer.write(join(computer.root, "var/lib/dpkg/info/quillmark.list"), "/usr/lib/quillmark\n");
  await mkdir(computer.userFolder, { recursive: true, mode: 0o700 });
  computer.installed = join(computer.root, "usr/lib/quillmark");
  return computer;
}

const PAIRS = [
  ["Chromium has no registration", "a policy with comments forbids all programs"],
  ["Chromium's registration is for another extension", "the extension is switched off in Chromium"],
  ["Firefox's registration names a program that is gone", "a policy forbids the extension in Firefox"],
  ["the settings name a driver that is gone", "pcscd does not run"],
  ["the launcher may not be executed", "there is no display"],
  ["a policy forbids all extensions", "the extension is missing in Chromium"],
  ["the driver is damaged", "p11-kit knows no module"],
  ["others may write in the working folder", "somebody else's file is in the registration's place"],
];
const PAIRS_OF_PACKAGE = [
  ["the program of the package is gone", "a damaged driver in the working folder hides the package's"],
  ["the administrator's settings are no JSON", "an older copy for one user stands before the package"],
];

/** The findings that are no good news, but for the expired certificate, which is there on purpose. */
async function bad(computer) {
  const { verdict, problems } = await examine(computer);
  return { verdict, problems: problems.filter(({ text }) => !text.includes("CN=Old")) };
}

/** Brings these faults about on a computer, has the doctor name each, and follows its remedies. */
async function assertNamedAndMended(computer, faults) {
  assert.deepEqual((await bad(computer)).problems, [], "healthy at first");
  for (const { fault } of faults) await fault(computer);
  const { problems } = await bad(computer);
  for (const { words, by, apt } of faults) {
    const found = problems.find(({ text }) => words.test(text));
    assert.ok(found, JSON.stringify(problems, null, 1));
    assert.ok(found.command ?? (found.remedy && by), `a remedy: ${JSON.stringify(found)}`);
    if (found.command) {
      const { code, out, err } = await follow(computer, found.command, { apt: await apt?.(computer) });
      assert.equal(code, 0, `${found.command}\n${out}${err}`);
    }
    await by?.(computer);
  }
  assert.deepEqual(await bad(computer), { verdict: "can", problems: [] }, "healthy at the end");
}

for (const [setUp, faults, pairs] of [[healthy, FAULTS, PAIRS], [packaged, FAULTS_OF_PACKAGE, PAIRS_OF_PACKAGE]]) {
  for (const names of [...Object.keys(faults).map((name) => [name]), ...pairs]) {
    test(`Named and mended: ${names.join("; and ")}`, async (t) => {
      await assertNamedAndMended(await setUp(t), names.map((name) => faults[name]));
    });
  }
}
