// A stranger's folder, in which there is nothing but packages of ours, installed from their tarballs.

import { cp, mkdir, readdir, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { AS_NOBODY, NOBODY, run, runUnchecked } from "../../lib/kit.mjs";
import { root } from "../../lib/quillmark.mjs";
import { pack } from "./packed.mjs";

const FILES = join(root, "tests/packages/stranger");

/**
 * Packs the test kit, and `others`, and installs them into a new folder beside the stranger's files. Gives the folder; it goes with
 * `cleanup`.
 */
export async function strangersFolder(cleanup, { others = [] } = {}) {
  const folder = await cleanup.folder("stranger");
  const tarballs = await Promise.all(["quillmark-testkit", ...others].map((name) => pack(name, folder)));
  await writeFile(join(folder, "package.json"), JSON.stringify({ name: "stranger", private: true, type: "module" }));
  const options = ["--prefer-offline", "--no-audit", "--no-fund", "--no-package-lock", "--install-links"];
  const packages = [...tarballs, join(root, "node_modules/playwright-core")];
  await run("npm", ["install", ...options, ...packages], { cwd: folder, timeout: 180_000 });
  await cp(FILES, folder, { recursive: true });
  return folder;
}

/**
 * Runs one of the stranger's files, as somebody does, and `asNobody` as an ordinary user: { code, output }, and what is `left` then of
 * its temporary files.
 */
export async function runStrangersTest(folder, file, env = {}, { asNobody = false } = {}) {
  const temporary = join(folder, `tmp-${file}`);
  await mkdir(temporary, { recursive: true });
  const { NODE_TEST_CONTEXT, ...own } = process.env; // of the test that runs this
  const options = { cwd: folder, timeout: 300_000, env: { ...own, TMPDIR: temporary, ...env } };
  if (asNobody) await run("chown", ["-R", `${NOBODY}:${NOBODY}`, folder]);
  const [command, ...args] = [...(asNobody ? AS_NOBODY : []), process.execPath, "--test", "--test-reporter=tap", file];
  const { code, stdout } = await runUnchecked(command, args, options);
  return { code, output: stdout.toString(), left: await readdir(temporary) };
}
