// A package as npm packs it, and unpacked where a program finds it.

import { mkdir, symlink } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../../lib/kit.mjs";
import { root } from "../../lib/quillmark.mjs";

/** Packs `packages/<name>` into `folder`. Gives the tarball's path. */
export async function pack(name, folder) {
  const { stdout } = await run("npm", ["pack", "--silent", "--pack-destination", folder], { cwd: join(root, "packages", name) });
  return join(folder, stdout.toString().trim().split("\n").at(-1));
}

/**
 * Packs it and unpacks it into the `node_modules` of `folder`, with what else of the project's packages it is to find there.
 */
export async function installPacked(name, folder, { others = [] } = {}) {
  const tarball = await pack(name, folder);
  const target = join(folder, "node_modules", name);
  await mkdir(target, { recursive: true });
  await run("tar", ["-xzf", tarball, "-C", target, "--strip-components=1"]);
  for (const other of others) await symlink(join(root, "node_modules", other), join(folder, "node_modules", other));
}
