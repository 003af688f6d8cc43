// The host on Wayland, at the scales of common screens, with the keyboard alone.

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { dirname, join } from "node:path";
import { before, test } from "node:test";

import { bin, product } from "../lib/quillmark.mjs";
import {
  bytesOf, CANCEL_TEXT, CHOOSE, FAILURE_PREFIX, NORMAL_END, PIN_TITLE, waitFor, WaylandDesktop, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const screenshots = join(dirname(bin), "screenshots");
const SELECTED_CARD = "cfe2fa";
const TEXT = "to be signed";
const SIGN = { action: "GSTReturnSign", hash: TEXT };
const TAB = { key: "Tab" };
const ENTER = { key: "Return" };

before(() => mkdir(screenshots, { recursive: true }));

/** A host on a Wayland desktop of that scale, past its start. */
async function hostAt(t, scale) {
  const desktop = await WaylandDesktop.start(world.cleanupOf(t), scale);
  const { host } = await world.hostWithFake(t, {}, { desktop });
  assert.equal((await host.request({ text: "started" })).result, `${FAILURE_PREFIX}echo: started`);
  await windowsAre(desktop, []);
  return { host, desktop };
}

async function windowsAre(desktop, titles) {
  await waitFor(`no windows but: ${titles}`, async () => String(await desktop.windows()) === String(titles));
}

/** Waits until the selected card is to be seen, as wide as the list and three lines high, in the output's pixels. */
async function cards(desktop, scale) {
  await desktop.window(WINDOW_TITLE);
  await waitFor("a selected card", async () => (await desktop.pixelsOf(SELECTED_CARD)) > 25_000 * scale * scale);
}

for (const scale of [1, 2, 3]) {
  test(`At scale ${scale} cards are seen, and keys choose, give the PIN and cancel`, async (t) => {
    const { host, desktop } = await hostAt(t, scale);
    host.send(SIGN);
    await cards(desktop, scale);
    await desktop.screenshot(join(screenshots, `wayland-${scale}-cards.png`));
    await desktop.type(WINDOW_TITLE, ENTER);
    await desktop.window(PIN_TITLE);
    await windowsAre(desktop, [PIN_TITLE]);
    await desktop.type(PIN_TITLE, "1234");
    await desktop.screenshot(join(screenshots, `wayland-${scale}-pin.png`));
    await desktop.type(PIN_TITLE, ENTER);
    const signed = await host.reply();
    assert.equal(signed.status_cd, 1, signed.result);
    assert.equal((await world.judges.cms(bytesOf(signed.result))).toString(), TEXT);
    await windowsAre(desktop, []);

    host.send(CHOOSE);
    await cards(desktop, scale);
    await desktop.type(WINDOW_TITLE, TAB, ENTER);
    assert.equal((await host.reply()).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
    await windowsAre(desktop, []);
    assert.deepEqual(await host.finish(), NORMAL_END);
  });
}

const waiting = {
  "waits for a request": async () => {},
  "shows its window": async (host, desktop) => {
    host.send(CHOOSE);
    await cards(desktop, 1);
  },
  "asks for the PIN": async (host, desktop) => {
    host.send(SIGN);
    await cards(desktop, 1);
    await desktop.type(WINDOW_TITLE, ENTER);
    await desktop.window(PIN_TITLE);
  },
};

for (const [state, bring] of Object.entries(waiting)) {
  test(`A compositor that goes while the host ${state}: it ends without a hang or a signal`, async (t) => {
    const { host, desktop } = await hostAt(t, 1);
    await bring(host, desktop);
    desktop.kill();
    // Without events to wait for, the loss shows at the next request for the window.
    if (state === "waits for a request") host.send(CHOOSE);
    const { code, signal } = await host.exit({ timeout: 2000 });
    assert.equal(signal, null);
    assert.notEqual(code, 0);
  });
}
