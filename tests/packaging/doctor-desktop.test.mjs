// Browsers as snaps and Flatpaks: what the doctor sees on the session bus of the desktop's services that start programs for them.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { chmod, mkdir, rm } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

import { examine, healthy } from "./lib/health.mjs";
import { follow } from "./lib/remedies.mjs";

const SERVICES = fileURLToPath(new URL("lib/desktop-services.py", import.meta.url));
const FLATPAK = "org.mozilla.firefox";

/** Gives the computer a session bus with these services, "proxy" or "portal", until the test ends. */
async function giveBus(t, computer, services) {
  const command = ["--", "/usr/bin/python3", SERVICES, ...services];
  const bus = spawn("dbus-run-session", command, { env: computer.env, stdio: ["ignore", "pipe", "ignore"], detached: true });
  t.after(async () => {
    process.kill(-bus.pid);
    if (bus.exitCode === null && bus.signalCode === null) await once(bus, "exit");
  });
  const [line] = await once(bus.stdout, "data");
  computer.more = { ...computer.more, DBUS_SESSION_BUS_ADDRESS: line.toString().trim() };
}

/** A computer with Firefox as a snap alone. */
async function withSnap(t, services) {
  const computer = await healthy(t, { browsers: [] });
  await computer.addBrowser("firefox", "snap/bin");
  await computer.tool("quillmark-browsers", "register", "--browser", "firefox");
  if (services) await giveBus(t, computer, services);
  return computer;
}

/** A computer with Firefox as a Flatpak alone, with these lines in its metadata. */
async function withFlatpak(t, services, metadata = "") {
  const computer = await healthy(t, { browsers: [] });
  await computer.write(join(computer.root, `var/lib/flatpak/app/${FLATPAK}/current/active/metadata`), `[Application]\n${metadata}`);
  await computer.tool("quillmark-browsers", "register", "--browser", "firefox", "--all");
  if (services) await giveBus(t, computer, services);
  return computer;
}

const finding = ({ findings }, words) => {
  const found = findings.find(({ text }) => words.test(text));
  assert.ok(found, JSON.stringify(findings, null, 1));
  return found;
};

test("Chromium as a snap or a Flatpak cannot start programs", async (t) => {
  const computer = await healthy(t, { browsers: [] });
  await computer.addBrowser("chromium", "snap/bin");
  await mkdir(join(computer.home, ".local/share/flatpak/app/org.chromium.Chromium"), { recursive: true });
  const examined = await examine(computer);
  assert.deepEqual(examined.browsers, { Chromium: "cannot", "Chromium as a Flatpak": "cannot" });
  finding(examined, /^Chromium: is a snap, which cannot start programs$/);
  finding(examined, /^Chromium as a Flatpak cannot start the signing program$/);
});

test("Without a session bus nothing can be told of a snap; on one without the services it cannot sign", async (t) => {
  const blind = await examine(await withSnap(t));
  assert.equal(blind.verdict, "unknown");
  assert.equal(finding(blind, /the session bus cannot be asked/).level, "unknown");
  const bare = await examine(await withSnap(t, []));
  assert.equal(bare.verdict, "cannot");
  finding(bare, /neither the native-messaging proxy nor the WebExtensions portal$/);
});

test("A snap that the portal was never asked about asks once; the doctor's command allows it, and takes back a refusal", async (t) => {
  const computer = await withSnap(t, ["portal"]);
  const asking = await examine(computer);
  assert.equal(asking.verdict, "can");
  const { command } = finding(asking, /^Firefox is a snap: it asks once whether the extension may start/);
  assert.equal((await follow(computer, command.replace(/yes$/, "no"))).code, 0);
  const refused = await examine(computer);
  assert.equal(refused.verdict, "cannot");
  const permit = finding(refused, /which the desktop's portal forbids/).command;
  assert.equal((await follow(computer, permit)).code, 0);
  const allowed = await examine(computer);
  assert.equal(allowed.verdict, "can");
  assert.equal(finding(allowed, /which the desktop's portal allows/).level, "ok");
});

test("Where there is flatpak, the permission is given by its own command", async (t) => {
  const computer = await withSnap(t, ["portal"]);
  const commands = join(computer.folder, "with-flatpak");
  await computer.write(join(commands, "flatpak"), "#!/bin/sh\n");
  await chmod(join(commands, "flatpak"), 0o755);
  computer.more.PATH = `${commands}:${process.env.PATH}`;
  const { command } = finding(await examine(computer), /asks once/);
  assert.equal(command, "flatpak permission-set webextensions quillmark.host snap.firefox yes");
});

test("The proxy is asked for the registration, and without one the doctor's command makes it", async (t) => {
  const computer = await withSnap(t, ["proxy"]);
  assert.equal((await examine(computer)).verdict, "can");
  await rm(computer.userManifest("firefox"));
  const missing = await examine(computer);
  assert.equal(missing.verdict, "cannot");
  const { command } = finding(missing, /the desktop's native-messaging proxy does not find the signing program/);
  assert.equal((await follow(computer, command)).code, 0);
  const found = await examine(computer);
  assert.equal(found.verdict, "can");
  assert.equal(finding(found, /the desktop's native-messaging proxy finds the signing program/).level, "ok");
});

test("A Flatpak has to be allowed to talk to the proxy, by its own metadata or an override", async (t) => {
  const computer = await withFlatpak(t, ["proxy"]);
  const refused = await examine(computer);
  assert.deepEqual(refused.browsers, { "Firefox as a Flatpak": "cannot" });
  const { command } = finding(refused, /is a Flatpak that may not talk to the desktop's native-messaging proxy$/);
  assert.equal(command, `flatpak override --user --talk-name=org.freedesktop.NativeMessagingProxy ${FLATPAK}`);
  // What that command writes.
  const policy = "[Session Bus Policy]\norg.freedesktop.NativeMessagingProxy=talk\n";
  await computer.write(join(computer.home, ".local/share/flatpak/overrides", FLATPAK), policy);
  assert.equal((await examine(computer)).verdict, "can");
  assert.equal((await examine(await withFlatpak(t, ["proxy"], policy))).verdict, "can");
  await computer.write(join(computer.home, ".local/share/flatpak/overrides", FLATPAK), policy.replace("talk", "none"));
  assert.equal((await examine(computer)).verdict, "cannot");
});

test("A Flatpak by the portal needs its own name's permission", async (t) => {
  const { command } = finding(await examine(await withFlatpak(t, ["portal"])), /asks once/);
  assert.match(command, new RegExp(` webextensions .*quillmark\\.host ${FLATPAK} `));
});
