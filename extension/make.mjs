#!/usr/bin/env node
/**
 * Makes the extension's folders: `chromium` and `firefox`, which the browsers load as they are, and `example`, the example
 * page. Our own code is copied as it is; the manifest is put together, and libraries of npm are bundled, each into one file
 * that can be read.
 *
 *     node extension/make.mjs [FOLDER]      (build/extension when left out)
 */
import { cp, mkdir, readFile, rm, symlink, writeFile } from "node:fs/promises";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

import { bundleLibraries } from "./libraries.mjs";

const SOURCE = dirname(fileURLToPath(import.meta.url));
const PDF_LIBRARY = join(SOURCE, "../node_modules/@cantoo/pdf-lib");

const EXTENSION_FILES = ["_locales", "consent", "doctor", "icons", "options", "popup", "src", "viewer", "quillmark.js", "ui.css"];

/** The manifest for "chromium" or "firefox": what both have in common, and what is the browser's own. */
export async function manifest(browser) {
  const read = async (name) => JSON.parse(await readFile(join(SOURCE, `manifest.${name}.json`), "utf8"));
  return { ...(await read("common")), ...(await read(browser)) };
}

/** Makes the folders below `target`, replacing what is there. */
export async function make(target) {
  for (const browser of ["chromium", "firefox"]) {
    const folder = await emptyFolder(join(target, browser));
    for (const name of EXTENSION_FILES) await cp(join(SOURCE, name), join(folder, name), { recursive: true });
    await writeFile(join(folder, "manifest.json"), `${JSON.stringify(await manifest(browser), null, 2)}\n`);
  }
  await cp(join(SOURCE, "managed-storage.json"), join(target, "chromium", "managed-storage.json"));

  // By far the largest part is there once. Chromium's pages follow a link out of the extension's folder; its content scripts
  // do not, nor does anything in Firefox.
  await bundleLibraries(join(target, "firefox/libraries"));
  await symlink("../firefox/libraries", join(target, "chromium/libraries"));

  const example = await emptyFolder(join(target, "example"));
  await cp(join(SOURCE, "example"), example, { recursive: true });
  await cp(join(SOURCE, "quillmark.js"), join(example, "quillmark.js"));
  await cp(join(PDF_LIBRARY, "dist/pdf-lib.esm.min.js"), join(example, "pdf-lib.js"));
  await cp(join(PDF_LIBRARY, "LICENSE.md"), join(example, "pdf-lib.LICENSE.md"));
}

async function emptyFolder(folder) {
  await rm(folder, { recursive: true, force: true });
  await mkdir(folder, { recursive: true });
  return folder;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const target = resolve(process.argv[2] ?? join(SOURCE, "../build/extension"));
  await make(target);
  console.log(`made ${target}/{chromium,firefox,example}`);
}
