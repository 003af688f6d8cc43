// "QMHostSettings.json" and "QMSignerExtHostLog.txt".

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { CLOSING_TEXT, NORMAL_END } from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const LOADING = "Loading Settings from QMHostSettings.json";
const NOT_LOADED = "Cound not Load Settings from QMHostSettings.json - ";
const DRIVER_LOADED = "Token Drivers Loaded from ./QMTokenDriver.so";

/** The log of a host that served one request and ended. */
async function logWith(t, settings, options = {}) {
  const { host } = await world.hostWithFake(t, {}, { settings, ...options });
  await host.request({ text: "x" });
  assert.deepEqual(await host.finish(), NORMAL_END);
  return host.logLines();
}

test("Without a settings file the log says so, and the defaults hold", async (t) => {
  const lines = await logWith(t, null);
  assert.ok(lines[0].startsWith(NOT_LOADED));
  assert.match(lines[0].slice(NOT_LOADED.length), /QMHostSettings\.json.*No such file/);
  assert.deepEqual(lines.slice(1), ["Host Application Started", DRIVER_LOADED, CLOSING_TEXT]);
});

test("Level 1 alone brings the DEBUG lines and leaves the driver's path", async (t) => {
  const lines = await logWith(t, { AppLogLevel: 1 });
  assert.equal(lines[0], LOADING);
  for (const line of ["Entered MyFrame::MyFrame", DRIVER_LOADED, "BUFFER LEN 12", "QMHost Error: echo: x"]) {
    assert.ok(lines.includes(line), line);
  }
});

for (const [rule, AppLogLevel, ...lines] of [
  ["Level 2 writes no DEBUG line", 2, "Host Application Started", DRIVER_LOADED, CLOSING_TEXT],
  ...[3, 4, 1000].map((level) => [`Level ${level} is silent after the line that was written before it was known`, level]),
]) {
  test(rule, async (t) => assert.deepEqual(await logWith(t, { AppLogLevel }), [LOADING, ...lines]));
}

test("Level 3 writes exceptions, level 4 does not", async (t) => {
  for (const [level, expected] of [[3, 1], [4, 0]]) {
    const { host } = await world.hostWithFake(t, {}, { settings: { AppLogLevel: level } });
    await host.request({ action: "PdfSignFromToken" });
    const complaints = (await host.logLines()).filter((line) => line.startsWith("Error  in GetPDFSignature(): "));
    assert.equal(complaints.length, expected);
  }
});

for (const [value, isDebug] of [["0", true], ["-5", true], ['"1"', true], ["true", true], ["1.9", true], ["null", true], ["{}", true],
  ['"nonsense"', true], ['"2"', false], ["2.9", false], ["false", true]]) {
  test(`The level ${value} is read as the library reads a number`, async (t) => {
    const lines = await logWith(t, `{"AppLogLevel":${value}}`);
    assert.equal(lines.includes("In ReadStdin()"), isDebug);
  });
}

test("An empty driver path keeps the default", async (t) => {
  assert.ok((await logWith(t, { TokenDriverFullPath: "" })).includes(DRIVER_LOADED));
});

test("A driver path is taken as it is", async (t) => {
  const token = await world.fakeToken();
  const settings = { TokenDriverFullPath: token.module };
  const host = await world.host(t, { settings, prepare: (folder) => token.prepare(folder) });
  await host.request({});
  assert.ok((await host.logLines()).includes(`Token Drivers Loaded from ${token.module}`));
});

test("A driver path that is no string is read as its JSON text", async (t) => {
  const host = await world.hostWithoutDriver(t, { settings: '{"TokenDriverFullPath":{"a":1}}' });
  assert.match(await host.logText(), /driver from path: \{"a":1\}, exiting/);
});

test("Other members are ignored, whatever they are", async (t) => {
  const lines = await logWith(t, { applogLevel: 1, More: [1, { a: null }], AppLogLevel: 2 });
  assert.deepEqual(lines[0], LOADING);
  assert.ok(!lines.includes("In ReadStdin()"));
});

for (const [what, text, prepare = null] of [
  ["of broken JSON", '{"AppLogLevel":1,'], ["of no JSON", "hello"], ["of nothing", ""], ["of deep nesting", "[".repeat(200_000)],
  ["of bytes that are no UTF-8", Buffer.from('{"\xff":1}', "latin1")],
  ["that is a folder", null, (folder) => mkdir(join(folder, "QMHostSettings.json"))],
]) {
  test(`A settings file ${what}: the log says so, and the defaults hold`, async (t) => {
    const lines = await logWith(t, text, { prepare });
    assert.ok(lines[0].startsWith(NOT_LOADED) && lines[0].length > NOT_LOADED.length);
    assert.deepEqual(lines.slice(-3), ["Host Application Started", DRIVER_LOADED, CLOSING_TEXT]);
  });
}

test("A line is the time, one blank and the text", withFake(async ({ host }) => {
  await host.request({});
  const lines = (await host.logText()).split("\n").slice(0, -1);
  for (const line of lines) {
    assert.match(line, /^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4} \S/);
  }
  const age = Date.now() - Date.parse(lines.at(-1).slice(0, 24));
  assert.ok(age >= 0 && age < 60_000, lines.at(-1));
}));

test("A text with line breaks has one time stamp", withFake(async ({ host }) => {
  await host.request({ text: "first\nsecond" });
  assert.match(await host.logText(), / QMHost Error: echo: first\nsecond\n/);
}));

test("The log grows from run to run", withFake({}, { settings: null }, async ({ host }, t) => {
  await host.finish();
  const first = await host.logText();
  const again = await world.host(t, { folder: host.folder });
  await again.finish();
  const both = await again.logText();
  assert.ok(both.startsWith(first));
  assert.equal(both.split("\n").length, 2 * first.split("\n").length - 1);
}));

test("Two hosts in one folder write into the same log", withFake(async ({ host }, t) => {
  const other = await world.host(t, { folder: host.folder });
  await Promise.all([host, other].map((one, i) => one.request({ text: `host ${i}` })));
  const lines = await host.logLines();
  for (const text of ["host 0", "host 1"]) assert.ok(lines.includes(`QMHost Error: echo: ${text}`));
}));
