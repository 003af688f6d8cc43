import assert from "node:assert/strict";
import { test } from "node:test";

import { chromium } from "playwright-core";
import puppeteer from "puppeteer-core";
import { startKit } from "quillmark-testkit";

import { ask, PAGE, product } from "./page.mjs";

async function playwright({ userDataDir, ...options }) {
  const context = await chromium.launchPersistentContext(userDataDir, options);
  return { page: await context.newPage(), close: () => context.close() };
}

async function ownPuppeteer(options) {
  const browser = await puppeteer.launch(options);
  return { page: await browser.newPage(), close: () => browser.close() };
}

for (const launch of [playwright, ownPuppeteer]) {
  test(`${launch.name} starts the browser, and the kit's user answers`, async (t) => {
    const kit = await startKit({ product, launch: false });
    t.after(() => kit.stop());
    const { page, close } = await launch(kit.launchOptions);
    await page.goto(await kit.serve({ "/": PAGE }));
    await kit.whenAsked({ consent: "always" });
    assert.ok((await ask(page, "signAuthToken", ["a token"])).value);
    assert.deepEqual(kit.asked.map(({ window, operation }) => operation ?? window), ["signAuthToken", "certificate", "pin"]);
    await assert.rejects(kit.page("about:blank"), TypeError);
    await close();
  });
}
