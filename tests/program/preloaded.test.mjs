// What cannot be brought about from outside: libraries in front of the host's own, of tests/fakes/preload.

import assert from "node:assert/strict";
import { join } from "node:path";
import { test } from "node:test";

import { fakes, product } from "../lib/quillmark.mjs";
import { CHOOSE, CLOSING_TEXT, FAILURE_PREFIX, NORMAL_END, openWindow, prefix, sleep, WINDOW_TITLE } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";


/** Options of a host with this library in front. */
function preloaded(name, options = {}) {
  return { env: { LD_PRELOAD: join(fakes, "preload", `${name}.so`) }, ...options };
}

async function yieldsOf(host) {
  return (await host.readFile("yields.txt")).split("\n").slice(0, -1);
}

test("Events are processed once at the end; at the start none of the user's are", async (t) => {
  const { host } = await world.hostWithFake(t, {}, preloaded("counts-yields"));
  await host.request({ text: "started" });
  assert.deepEqual(await yieldsOf(host), ["some"]);
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.deepEqual(await yieldsOf(host), ["some", "yield"]);
});

test("A click on Cancel at the start does not answer the first request", async (t) => {
  const { host } = await world.hostWithFake(t, {}, preloaded("holds-the-start-window"));
  await world.desktop.click(await world.desktop.window(WINDOW_TITLE), ...host.user.cancelButton);
  assert.ok(!(await host.logLines()).includes("Start TokenManager()"), "the click came too late for this test");
  await openWindow(host, CHOOSE);
  await sleep(1000);
  assert.equal((await world.desktop.windows(WINDOW_TITLE)).length, 1, "the window waits for a choice");
  await host.user.clickOk();
  assert.equal((await host.reply()).status_cd, 1);
});

test("Before the token is asked events are processed four times, and once when the window is hidden", async (t) => {
  const { host } = await world.hostWithFake(t, { slots: [] }, preloaded("counts-yields"));
  assert.equal((await host.request(CHOOSE)).result, `${FAILURE_PREFIX}No slot with token attached.`);
  const pause = ["yield", "some", "yield"]; // at its end the display is sent what has changed, and no event is taken
  assert.deepEqual(await yieldsOf(host), ["some", ...pause, ...pause, "yield"]);
  await host.finish();
});

for (const [rule, library, reason] of [
  ["A driver that cannot be loaded for no reason is told in the system's own words", "fails-to-load-without-a-reason", ""],
  ["A reason that comes late is told with it", "fails-to-load-the-driver", " - a late reason"],
]) {
  test(rule, async (t) => {
    const host = await world.hostWithoutDriver(t, preloaded(library));
    assert.equal((await host.logLines()).at(-1),
      `Error in Load Tokan Driver Lib: basic_string: construction from null is not valid :: ./QMTokenDriver.so${reason}`);
  });
}

test("The box says what is logged, with its line breaks", async (t) => {
  const host = await world.hostWithoutDriver(t, preloaded("writes-down-the-box"));
  assert.equal(await host.readFile("box.txt"), `Could not load Smartcard or Token driver from path: ./QMTokenDriver.so, \
exiting Quillmark Extension Host... \n\nPut the file in application folder with name 'QMTokenDriver.so' and try again.`);
});

test("A window that cannot be made ends the host, and the log has the reason alone", async (t) => {
  const { host } = await world.hostWithFake(t, {}, preloaded("fails-to-make-a-window"));
  const { code, signal } = await host.exit();
  assert.notEqual(code, 0);
  assert.equal(signal, null);
  assert.equal(await host.replyFrame(), null);
  assert.equal((await host.logLines()).at(-1), "no window");
});

test("Without memory for a frame the host ends in its own words, and a smaller one is served before", async (t) => {
  const { host } = await world.hostWithFake(t, {}, preloaded("fails-to-allocate-a-large-frame"));
  assert.equal((await host.request({ text: "small" })).result, `${FAILURE_PREFIX}echo: small`);
  host.sendBytes(prefix(1 << 23)); // the buffer is eight times as large
  assert.deepEqual(await host.exit(), NORMAL_END);
  assert.equal(await host.replyFrame(), null);
  assert.deepEqual((await host.logLines()).slice(-2),
    ["Error  in ReadStdin(): std::bad_alloc", CLOSING_TEXT]);
});

test("SignXML shows no window, asks no token and logs nothing of its own", async (t) => {
  const { host, token } = await world.hostWithFake(t, {}, preloaded("counts-yields"));
  await host.request({});
  const before = (await host.logLines()).length;
  await host.request({ action: "SignXML", xmlDoc: "<a/>", xmlSignParms: "p" });
  const lines = (await host.logLines()).slice(before);
  // The frame and its length, and the beginning of the next read, which may come a little later.
  assert.deepEqual(lines.filter((line) => !/^\{|^BUFFER LEN|^In ReadStdin/.test(line)), ["after iSize == 4", "after iLen > 0",
    "ProcessInMessage Returned.", "Not Implimented.", "QMHost Error: Not Implimented."]);
  assert.deepEqual(await yieldsOf(host), ["some"]);
  assert.deepEqual(await token.calls(), []);
});
