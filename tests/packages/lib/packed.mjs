// A package as npm packs it, unpacked where a program finds it.

import { mkdir, symlink } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../../lib/kit.mjs";
import { root } from "../../lib/quillmark.mjs";

/**
 * Packs `packages/<name>` and unpacks it into the `node_modules` of `folder`, with what else of the project's packages it is
 * to find there.
 */
export async function installPacked(name, folder, { others = [] } = {}) {
  const { stdout } = await run("npm", ["pack", "--json", "--pack-destination", folder], { cwd: join(root, "packages", name) });
  const [{ filename }] = JSON.parse(stdout.slice(stdout.indexOf("[\n")));
  const target = join(folder, "node_modules", name);
  await mkdir(target, { recursive: true });
  await run("tar", ["-xzf", join(folder, filename), "-C", target, "--strip-components=1"]);
  for (const other of others) await symlink(join(root, "node_modules", other), join(folder, "node_modules", other));
}
