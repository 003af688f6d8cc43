// Users who close windows that want an answer: no window that they close ends the host or answers for them.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  CHOOSE, chooseAndLogIn, chooseFirst, ERROR_TITLE, FAILURE_PREFIX, NO_PIN_TEXT, NORMAL_END, openPinDialog,
  openWindow, sleep, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const SIGN = { action: "SignAuthToken", authToken: "token" };

/** The window manager draws its close box here whether the window offers closing or not. */
async function clickCloseBox(id) {
  const { width } = await world.desktop.geometry(id);
  await world.desktop.click(id, width - 11, -11);
}

test("The title bar's close box and Alt+F4, many times: the window goes on waiting", withFake(async ({ host }) => {
  for (let round = 0; round < 3; ++round) {
    const id = await openWindow(host, CHOOSE);
    for (let i = 0; i < 5; ++i) {
      await clickCloseBox(id);
      await world.desktop.key(id, "alt+F4");
    }
    await sleep(300);
    await host.user.clickOk();
    assert.equal((await host.reply()).status_cd, 1);
    assert.equal((await host.request({ text: "on" })).result, `${FAILURE_PREFIX}echo: on`);
  }
  assert.deepEqual(await host.finish(), NORMAL_END);
}));

test("Alt+F4 while the token is read: the list comes all the same", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_OpenSession", delay: 1500 }] });
  host.send(CHOOSE);
  const id = await world.desktop.window(WINDOW_TITLE);
  for (let i = 0; i < 5; ++i) await world.desktop.key(id, "alt+F4");
  await host.user.clickOk();
  assert.equal((await host.reply()).status_cd, 1);
  assert.equal((await chooseAndLogIn(host, SIGN)).status_cd, 1);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

for (const [how, close] of [
  ["close box", clickCloseBox],
  ["Alt+F4", (id) => world.desktop.key(id, "alt+F4")],
]) {
  test(`The PIN dialog closed with ${how} is cancelled, also with a PIN in it`, withFake(async ({ host, token }) => {
    for (const typed of ["", "1234"]) {
      const dialog = await openPinDialog(host, SIGN);
      if (typed) await world.desktop.type(dialog, typed);
      await close(dialog);
      assert.equal((await host.reply()).result, FAILURE_PREFIX);
      assert.equal((await host.logLines()).filter((line) => line.startsWith("Error in")).at(-1),
        `Error in GetTokenPvtKey(): ${NO_PIN_TEXT}`);
    }
    assert.deepEqual(await token.calls("C_Login"), []);
    assert.equal((await chooseAndLogIn(host, SIGN)).status_cd, 1);
    assert.deepEqual(await host.finish(), NORMAL_END);
  }));
}

test("The message of a missing driver closed with Alt+F4 ends the host like its button", async (t) => {
  const host = await world.host(t);
  await world.desktop.key(await world.desktop.window(ERROR_TITLE), "alt+F4");
  assert.deepEqual(await host.exit(), { code: 1, signal: null });
});

test("A user who kills the window ends the host at once, and without a signal", withFake(async ({ host }, t) => {
  const id = await openWindow(host, CHOOSE);
  await world.desktop.run("xdotool", ["windowkill", id]);
  const { code, signal } = await host.exit({ timeout: 2000 });
  assert.equal(signal, null);
  assert.notEqual(code, 0);
  const { host: next } = await world.hostWithFake(t);
  assert.equal((await chooseFirst(next, CHOOSE)).status_cd, 1);
}));
