#!/usr/bin/env node
/** Draws the extension's icons from the host's logo: `node extension/make-icons.mjs`. They are kept in the repository. */
import { readFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import puppeteer from "puppeteer-core";

const HERE = dirname(fileURLToPath(import.meta.url));
const logo = await readFile(join(HERE, "../QMChromeExtHost/QMLogo.svg"), "utf8");

// Chromium refuses to run as root inside its sandbox.
const args = process.getuid() === 0 ? ["--no-sandbox"] : [];
const browser = await puppeteer.launch({ executablePath: "/usr/bin/chromium", args });
const page = await browser.newPage();
for (const size of [16, 32, 48, 128]) {
  await page.setViewport({ width: size, height: size });
  await page.setContent(`<style>body { margin: 0 } svg { display: block; width: ${size}px; height: ${size}px }</style>${logo}`);
  await page.screenshot({ path: join(HERE, "icons", `${size}.png`), omitBackground: true });
}
await browser.close();
