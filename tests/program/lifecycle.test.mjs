// From the start of the host to its end.

import assert from "node:assert/strict";
import { chmod, copyFile, mkdir, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { product } from "../lib/quillmark.mjs";
import {
  AS_NOBODY, CHOOSE, chooseFirst, CLOSING_TEXT, ERROR_TITLE, NORMAL_END, run, sleep, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const START = [
  "Loading Settings from QMHostSettings.json",
  "Host Application Started",
  "Entered MyFrame::MyFrame",
  "Trying to Create Status Bar",
  "Done MyFrame::MyFrame",
  "Trying to Show Window",
  "Done Centering Window",
  "Trying to Set Window Icon",
  "Done Setting Window Icon",
  "In OnIdle() : Hiding Dialog and Starting CheckForInwordMsgFromBrowser()",
  "Start TokenManager()",
  "TokenManager() all statements SUCCESSFUL",
  "Token Drivers Loaded from ./QMTokenDriver.so",
  "In CheckForInwordMsgFromBrowser",
  "In ReadStdin()",
];

test("With the input at its end already, the host goes through start and end and stops with 0", withFake(async ({ host, token }) => {
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.deepEqual(await host.logLines(), [...START, CLOSING_TEXT]);
  assert.equal(await host.replyFrame(), null);
  assert.deepEqual(await token.calls(), []);
}));

test("The first idle event alone starts the service", withFake(async ({ host }) => {
  await chooseFirst(host, CHOOSE);
  await sleep(2500); // the one-shot timer of the start comes after two seconds
  await host.request({});
  assert.deepEqual(await host.finish(), NORMAL_END);
  const lines = await host.logLines();
  for (const once of [...START.slice(0, -1), CLOSING_TEXT]) {
    assert.equal(lines.filter((line) => line === once).length, 1, once);
  }
}));

test("No window is to be seen while the host serves", withFake(async ({ host }) => {
  await host.request({});
  await world.desktop.windowGone(WINDOW_TITLE);
  await sleep(500);
  assert.deepEqual(await world.desktop.windows(WINDOW_TITLE), []);
}));

test("A token driver that cannot be loaded: one message box, then status 1 and nothing written", async (t) => {
  const host = await world.host(t, { token: null });
  const box = await world.desktop.window(ERROR_TITLE);
  assert.equal((await world.desktop.windows(ERROR_TITLE)).length, 1);
  await world.desktop.windowGone(WINDOW_TITLE);
  host.send({ text: "too late" });
  await world.desktop.key(box, "Return");
  assert.deepEqual(await host.exit(), { code: 1, signal: null });
  assert.equal(await host.replyFrame(), null);
});

test("The message box of a missing driver ends the host also when the input has ended", async (t) => {
  const host = await world.host(t, { token: null });
  host.endInput();
  await world.desktop.key(await world.desktop.window(ERROR_TITLE), "Return");
  assert.deepEqual(await host.exit(), { code: 1, signal: null });
});

for (const [what, prepare] of [
  ["A missing logo", null],
  ["A logo that is no picture", (folder) => writeFile(join(folder, "QMLogo.png"), "no picture")],
  ["A logo of no bytes", (folder) => writeFile(join(folder, "QMLogo.png"), "")],
]) {
  test(`${what} stops nothing and opens no window`, withFake({}, { logo: false, prepare }, async ({ host }) => {
    assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
    assert.deepEqual(await world.desktop.windows(".*"), []);
    assert.deepEqual(await host.finish(), NORMAL_END);
    assert.match(await host.logText(), /QMLogo\.png/);
  }));
}

for (const [browser, args] of [
  ["Chromium", ["chrome-extension://abcdefghijklmnopabcdefghijklmnop/"]],
  ["Firefox", ["/home/user/.mozilla/native-messaging-hosts/quillmark.json", "quillmark@example.com"]],
  ["a portal", []],
  ["somebody curious", ["--help"]],
]) {
  test(`The arguments of ${browser} are not examined`, withFake({}, { args }, async ({ host }) => {
    assert.equal((await host.request({ text: "served" })).result, "QMHost Error: echo: served");
    assert.deepEqual(await host.finish(), NORMAL_END);
  }));
}

test("A closed output is noticed at the next read: the host ends with 0", withFake(async ({ host }) => {
  await host.request({});
  host.closeOutput();
  host.send({ text: "into the void" });
  host.send({ text: "and another" });
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.equal((await host.logLines()).at(-1), CLOSING_TEXT);
}));

test("A browser that goes while the window is open: the answer is awaited, then the host ends with 0", withFake(async ({ host }) => {
  host.send(CHOOSE);
  host.endInput();
  host.closeOutput();
  await host.user.clickCancel();
  assert.deepEqual(await host.exit(), NORMAL_END);
}));

test("Without a display the host ends at once with a status that is not 0", withFake({}, { env: { DISPLAY: "" } }, async ({ host }) => {
  const { code } = await host.exit();
  assert.notEqual(code, 0);
  assert.equal(await host.replyFrame(), null);
}));

test("Dates are English in a German desktop", async (t) => {
  const locales = await world.cleanupOf(t).folder("locales");
  await run("localedef", ["-i", "de_DE", "-f", "UTF-8", join(locales, "de_DE.UTF-8")]);
  const env = { LOCPATH: locales, LC_ALL: "de_DE.UTF-8", LANG: "de_DE.UTF-8", LANGUAGE: "de" };
  const certificate = await world.certificate("dated", { from: "20221231000000Z", to: "20271031000000Z" });
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "01" }] }, { env });
  const record = JSON.parse((await chooseFirst(host, CHOOSE)).result);
  assert.equal(record.ExpDate, "Sun, 31 Oct 2027 00:00:00 GMT");
  assert.equal(record.ValidFrom, "2022-12-31T00:00:00Z");
});

test("A log file that cannot be written is no reason to stop", async (t) => {
  const prepare = (folder) => mkdir(join(folder, "QMSignerExtHostLog.txt"));
  const { host } = await world.hostWithFake(t, {}, { prepare });
  assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

test("A folder that the user may not write to is no reason to stop", async (t) => {
  const token = await world.fakeToken({ certificates: [{ certificate: await world.certificate(), id: "01", key: false }] });
  // Nobody may write there, and root, who may everywhere, runs the host as nobody: with files that nobody can reach.
  const prepare = async (folder) => {
    const sources = { "QMChromeExtHost": product.program, "QMLogo.png": product.logo, "QMTokenDriver.so": token.module };
    for (const [name, source] of Object.entries(sources)) {
      await rm(join(folder, name));
      await copyFile(source, join(folder, name));
    }
    await chmod(folder, 0o555);
  };
  const isRoot = process.getuid() === 0;
  const wrapper = isRoot ? AS_NOBODY : [];
  const home = await world.cleanupOf(t).folder("home");
  const host = await world.host(t, { token, prepare, wrapper, env: { HOME: home, XDG_RUNTIME_DIR: home } });
  assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.equal(await host.logText(), "");
  await chmod(host.folder, 0o755);
});
