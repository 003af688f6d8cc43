// Pipes that are closed in the midst of a message, signals, and a display that is gone.

import assert from "node:assert/strict";
import { readdir } from "node:fs/promises";
import { test } from "node:test";

import {
  CHOOSE, CLOSING_TEXT, Desktop, ERROR_TITLE, FAILURE_PREFIX, frame, NORMAL_END, openPinDialog, openWindow,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";


/** Lets a crash write its core file, if there is one to come. */
const WITH_CORE_FILES = ["sh", "-c", 'ulimit -c unlimited; exec "$@"', "sh"];

async function assertNoCore(host) {
  assert.deepEqual((await readdir(host.folder)).filter((name) => name.startsWith("core")), []);
}

/** Calls `work` for each of the items, some at a time. */
async function forEachOf(items, work, atOnce = 6) {
  const left = [...items];
  await Promise.all(Array.from({ length: atOnce }, async () => {
    while (left.length > 0) await work(left.shift());
  }));
}

test("An input that ends at any byte of a frame: what came whole is answered, then the host ends with 0", async (t) => {
  const bytes = frame({ text: "hello", nonce: "5" });
  await forEachOf(Array.from(bytes, (_, i) => i + 1), async (length) => {
    const { host } = await world.hostWithFake(t);
    host.sendBytes(bytes.subarray(0, length));
    assert.deepEqual(await host.finish(), NORMAL_END, `after ${length} bytes`);
    // From the length prefix on there is a request, though it may be of no use.
    const reply = length < 4 ? null : length < bytes.length ? { result: `${FAILURE_PREFIX}echo: `, nonce: "" }
      : { result: `${FAILURE_PREFIX}echo: hello`, nonce: "5" };
    if (reply) assert.deepEqual(await host.reply(), { status_cd: 0, ...reply }, `after ${length} bytes`);
    assert.equal(await host.replyFrame(), null);
    assert.equal((await host.logLines()).at(-1), CLOSING_TEXT);
  });
});

test("An output that is closed at any byte of a reply: the host goes on, and ends with its input", async (t) => {
  // More than a pipe holds: what is not read is not written either.
  const request = { text: "x".repeat(200_000), nonce: "1" };
  const length = 4 + JSON.stringify({ status_cd: 0, result: `${FAILURE_PREFIX}echo: ${request.text}`, nonce: "1" }).length;
  const places = [0, 1, 2, 3, 4, 5, 4095, 4096, 4097, 65_535, 65_536, 65_537, 100_000, 131_072, 150_000, length - 65_536,
    length - 1, length];
  await forEachOf(places, async (place) => {
    const readSome = `"$@" | head -c ${place} | wc -c; exit "\${PIPESTATUS[0]}"`;
    const { host } = await world.hostWithFake(t, {}, { wrapper: ["bash", "-c", readSome, "bash"] });
    host.send(request);
    host.send({ text: "and another" });
    assert.deepEqual(await host.finish(), NORMAL_END, `closed after ${place} bytes`);
    const lines = await host.logLines();
    assert.ok(lines.includes(`${FAILURE_PREFIX}echo: and another`), `closed after ${place} bytes`);
    assert.equal(lines.at(-1), CLOSING_TEXT);
  });
});

const waiting = {
  "waits for a request": async (host) => host.request({}),
  "shows its window": async (host) => {
    await openWindow(host, CHOOSE);
  },
  "asks for the PIN": async (host, desktop) => {
    await openPinDialog(host, { action: "SignAuthToken", authToken: "token" });
  },
  "says that its driver is missing": async (host, desktop) => desktop.window(ERROR_TITLE),
};

for (const [state, bring] of Object.entries(waiting)) {
  const isMissing = state.includes("missing");

  async function hostInThatState(t, desktop) {
    const token = isMissing ? null : await world.fakeToken();
    const host = await world.host(t, { desktop, token, wrapper: WITH_CORE_FILES });
    await bring(host, desktop);
    return host;
  }

  test(`SIGTERM while the host ${state}: it ends at once, with its log complete`, async (t) => {
    const host = await hostInThatState(t, world.desktop);
    process.kill(host.pid, "SIGTERM");
    assert.deepEqual(await host.exit({ timeout: 1000 }), { code: null, signal: "SIGTERM" });
    assert.match(await host.logText(), /\n$/);
    await assertNoCore(host);
  });

  test(`A display that goes while the host ${state}: it ends without a hang, a core or a signal`, async (t) => {
    const desktop = await Desktop.start();
    let host;
    try {
      host = await hostInThatState(t, desktop);
    } finally {
      await desktop.stop();
    }
    // Without events to wait for, the loss shows at the next request for the window, or at the end of the input.
    if (state === "waits for a request") host.send(CHOOSE);
    const { code, signal } = await host.exit({ timeout: 2000 });
    assert.equal(signal, null);
    assert.notEqual(code, 0);
    await assertNoCore(host);
  });
}

test("A display that is gone when the input ends keeps no host", async (t) => {
  const desktop = await Desktop.start();
  const { host } = await world.hostWithFake(t, {}, { desktop, wrapper: WITH_CORE_FILES });
  await host.request({});
  await desktop.stop();
  assert.equal((await host.request({ text: "needs no display" })).result, `${FAILURE_PREFIX}echo: needs no display`);
  const { signal } = await host.finish({ timeout: 2000 });
  assert.equal(signal, null);
  assert.equal((await host.logLines()).at(-1), CLOSING_TEXT);
  await assertNoCore(host);
});
