// Before the package is packed: copies what its files import of the project's own harness, tests/lib, into lib/.

import { cp, mkdir, readdir, readFile, rm } from "node:fs/promises";
import { dirname, join, relative } from "node:path";
import { fileURLToPath } from "node:url";

const HERE = dirname(fileURLToPath(import.meta.url));
const HARNESS = join(HERE, "../../tests/lib");
const LIB = join(HERE, "lib");

/** The files of the harness that these texts import, and those that they import in turn, by their paths in it. */
async function needed(file, text, found) {
  for (const [, name] of text.matchAll(/^(?:import|export)\b[^"]*?from "(\.[^"]+)";$/gm)) {
    const path = relative(LIB, join(dirname(join(HERE, file)), name));
    if (path.startsWith("..") || found.has(path)) continue;
    found.add(path);
    await needed(join("lib", path), await readFile(join(HARNESS, path), "utf8"), found);
  }
}

await rm(LIB, { recursive: true, force: true });
const found = new Set();
for (const name of await readdir(HERE)) {
  if (/\.js$/.test(name)) await needed(name, await readFile(join(HERE, name), "utf8"), found);
}
for (const path of found) {
  await mkdir(dirname(join(LIB, path)), { recursive: true });
  await cp(join(HARNESS, path), join(LIB, path));
}
