// ./install: what goes where, and that all of it goes away again.

import assert from "node:assert/strict";
import { existsSync, lstatSync, readlinkSync, statSync } from "node:fs";
import { mkdir, readdir, readFile, rm, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { run, runUnchecked } from "../lib/kit.mjs";
import { root } from "../lib/quillmark.mjs";
import { Computer } from "./lib/computer.mjs";

/** The doctor's parts. */
const MODULES = (await readdir(join(root, "packaging"))).filter((name) => name.endsWith(".py")).sort();
const COMMANDS = ["quillmark-browsers", "quillmark-doctor", "quillmark-journal", "quillmark-tokens"];

/** The body of a test on a computer with Chromium, where nothing is installed yet. */
function withChromium(body) {
  return async (t) => {
    const computer = await Computer.make(t, { browsers: ["chromium"] });
    // The install script takes the browsers from the PATH.
    computer.more = { PATH: `${join(computer.root, "usr/bin")}:${process.env.PATH}` };
    await body(computer);
  };
}

test("install puts everything into the user's own folder and registers", withChromium(async (computer) => {
  const { code, out } = await computer.install();
  assert.equal(code, 0, out);
  const folder = computer.userFolder;
  assert.deepEqual((await readdir(folder)).sort(), [
    "QMChromeExtHost", "QMLogo.png", "QMTokenDriver.so", "browsers.json", "quillmark-browsers", "quillmark-doctor", "quillmark-doctor-host", "quillmark-host", "quillmark-journal",
    "quillmark-tokens", ...MODULES, "registration.json",
  ]);
  assert.equal(statSync(folder).mode & 0o777, 0o700);
  const manifest = await computer.read(computer.userManifest("chromium"));
  assert.equal(manifest.path, join(folder, "quillmark-host"));
  for (const name of COMMANDS) assert.equal(readlinkSync(join(computer.home, ".local/bin", name)), join(folder, name));
}));

test("A folder that others could write is closed by the install", withChromium(async (computer) => {
  await mkdir(computer.userFolder, { recursive: true, mode: 0o777 });
  await computer.install();
  assert.equal(statSync(computer.userFolder).mode & 0o777, 0o700);
}));

test("uninstall takes all of it away, with the host's own log and settings", withChromium(async (computer) => {
  await computer.install();
  await writeFile(join(computer.userFolder, "QMSignerExtHostLog.txt"), "a line\n");
  await writeFile(join(computer.userFolder, "modules.log"), "a line\n");
  await writeFile(join(computer.userFolder, "QMHostSettings.json"), "{}");
  const { code, out } = await computer.install("--uninstall");
  assert.equal(code, 0);
  assert.match(out, /Uninstalled/);
  assert.ok(!existsSync(computer.userFolder));
  assert.ok(!existsSync(computer.userManifest("chromium")));
  assert.deepEqual(await readdir(join(computer.home, ".local/bin")), []);
}));

test("uninstall leaves what is not Quillmark's, and names it", withChromium(async (computer) => {
  await computer.install();
  await writeFile(join(computer.userFolder, "notes.txt"), "mine");
  const command = join(computer.home, ".local/bin/quillmark-doctor");
  await rm(command);
  await writeFile(command, "mine too");
  const { out } = await computer.install("--uninstall");
  assert.match(out, /notes\.txt/);
  assert.deepEqual(await readdir(computer.userFolder), ["notes.txt"]);
  assert.ok(existsSync(command));
}));

test("uninstall without an installation is one clear line", withChromium(async (computer) => {
  const { code, err } = await computer.install("--uninstall");
  assert.equal(code, 1);
  assert.match(err, /^Quillmark is not installed in .*\n$/);
}));

test("A second install renews the files, also while the host runs", withChromium(async (computer) => {
  await computer.install();
  await computer.setProgram("#!/bin/sh\necho renewed\n");
  assert.equal((await computer.install()).code, 0);
  const { stdout } = await run(join(computer.userFolder, "QMChromeExtHost"), []);
  assert.equal(stdout.toString(), "renewed\n");
}));

test("install replaces a link in a file's place, and does not write through it", withChromium(async (computer) => {
  await mkdir(computer.userFolder, { recursive: true });
  const target = join(computer.folder, "packaged.so");
  await writeFile(target, "the package's");
  await symlink(target, join(computer.userFolder, "QMTokenDriver.so"));
  await computer.install();
  assert.equal(await readFile(target, "utf8"), "the package's");
  assert.ok(lstatSync(join(computer.userFolder, "QMTokenDriver.so")).isFile());
}));

test("--system installs for all users, and the paths are those without the folder that stands for /", withChromium(async (computer) => {
  const { code, out, err } = await computer.install("--system", "--root", computer.root);
  assert.equal(code, 0, out + err);
  assert.equal(statSync(join(computer.root, "usr/lib/quillmark")).mode & 0o777, 0o755);
  assert.equal(readlinkSync(join(computer.root, "usr/bin/quillmark-doctor")), "/usr/lib/quillmark/quillmark-doctor");
  const manifest = await computer.read(computer.systemManifest("etc/chromium/native-messaging-hosts"));
  assert.equal(manifest.path, "/usr/lib/quillmark/quillmark-host");
  assert.ok(!existsSync(computer.userManifest("chromium")));

  assert.equal((await computer.install("--system", "--root", computer.root, "--uninstall")).code, 0);
  assert.ok(!existsSync(join(computer.root, "usr/lib/quillmark")));
  assert.ok(!existsSync(computer.systemManifest("etc/chromium/native-messaging-hosts")));
}));

test("Options that do not go together are refused, and a missing file of the build is named", withChromium(async (computer) => {
  assert.match((await computer.install("--root", computer.root)).err, /--root goes with --system/);
  assert.match((await computer.install("--everything")).err, /No such option/);
  await rm(join(computer.program, "QMTokenDriver.so"));
  assert.match((await computer.install()).err, /QMTokenDriver\.so is missing/);
  assert.ok(!existsSync(computer.userFolder));
}));

test("The demo refuses what it does not know, before it installs or builds anything", async () => {
  for (const args of [["--browser", "xyz"], ["--browser", "firefox", "chromium"], ["--auto", "more"], ["--nothing"]]) {
    const { code, stderr } = await runUnchecked(join(root, "demo"), args, { timeout: 10_000 });
    assert.equal(code, 2, args.join(" "));
    assert.match(stderr, /^Usage: /);
  }
});
