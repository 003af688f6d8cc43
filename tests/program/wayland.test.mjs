// The program on Wayland, at the scales of common screens, with the keyboard alone.

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { dirname, join } from "node:path";
import { before, test } from "node:test";

import { bin } from "./lib/build.mjs";
import { cancelText, failurePrefix, pinTitle, windowTitle } from "./lib/host.mjs";
import { waitFor } from "./lib/process.mjs";
import { WaylandDesktop } from "./lib/wayland-desktop.mjs";
import { World } from "./lib/world.mjs";

const world = World.forThisFile();

const screenshots = join(dirname(bin), "screenshots");
const selectedCard = "cfe2fa";
const text = "to be signed";
const choose = { action: "GetSelCertFromToken" };
const sign = { action: "GSTReturnSign", hash: text };
const tab = { key: "Tab" };
const enter = { key: "Return" };

before(() => mkdir(screenshots, { recursive: true }));

/** A host on a Wayland desktop of that scale, past its start. */
async function hostAt(t, scale) {
  const desktop = await WaylandDesktop.start(world.cleanupOf(t), scale);
  const { host } = await world.hostWithFake(t, {}, { desktop });
  assert.equal((await host.request({ text: "started" })).result, `${failurePrefix}echo: started`);
  await windowsAre(desktop, []);
  return { host, desktop };
}

async function windowsAre(desktop, titles) {
  await waitFor(`no windows but: ${titles}`, async () => String(await desktop.windows()) === String(titles));
}

/** Waits until the selected card is to be seen, as wide as the list and three lines high, in the output's pixels. */
async function cards(desktop, scale) {
  await desktop.window(windowTitle);
  await waitFor("a selected card", async () => (await desktop.pixelsOf(selectedCard)) > 25_000 * scale * scale);
}

for (const scale of [1, 2, 3]) {
  test(`At scale ${scale} cards are seen, and keys choose, give the PIN and cancel`, async (t) => {
    const { host, desktop } = await hostAt(t, scale);
    host.send(sign);
    await cards(desktop, scale);
    await desktop.screenshot(join(screenshots, `wayland-${scale}-cards.png`));
    await desktop.type(windowTitle, enter);
    await desktop.window(pinTitle);
    await windowsAre(desktop, [pinTitle]);
    await desktop.type(pinTitle, "1234");
    await desktop.screenshot(join(screenshots, `wayland-${scale}-pin.png`));
    await desktop.type(pinTitle, enter);
    const signed = await host.reply();
    assert.equal(signed.status_cd, 1, signed.result);
    assert.equal((await world.judges.cms(Buffer.from(signed.result, "base64"))).toString(), text);
    await windowsAre(desktop, []);

    host.send(choose);
    await cards(desktop, scale);
    await desktop.type(windowTitle, tab, enter);
    assert.equal((await host.reply()).result, failurePrefix + cancelText);
    await windowsAre(desktop, []);
    assert.deepEqual(await host.finish(), { code: 0, signal: null });
  });
}

const waiting = {
  "waits for a request": async () => {},
  "shows its window": async (host, desktop) => {
    host.send(choose);
    await cards(desktop, 1);
  },
  "asks for the PIN": async (host, desktop) => {
    host.send(sign);
    await cards(desktop, 1);
    await desktop.type(windowTitle, enter);
    await desktop.window(pinTitle);
  },
};

for (const [state, bring] of Object.entries(waiting)) {
  test(`A compositor that goes while the host ${state}: it ends without a hang or a signal`, async (t) => {
    const { host, desktop } = await hostAt(t, 1);
    await bring(host, desktop);
    desktop.kill();
    // Without events to wait for, the loss shows at the next request for the window.
    if (state === "waits for a request") host.send(choose);
    const { code, signal } = await host.exit({ timeout: 2000 });
    assert.equal(signal, null);
    assert.notEqual(code, 0);
  });
}
