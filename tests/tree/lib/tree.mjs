// The tree's files as git sees them, and how its C++ is compiled.

import { execFileSync, spawn } from "node:child_process";
import { existsSync, readFileSync } from "node:fs";
import { cpus } from "node:os";
import { dirname, join, relative, resolve } from "node:path";
import { fileURLToPath } from "node:url";

export const root = resolve(dirname(fileURLToPath(import.meta.url)), "../../..");

/** The build whose compile commands count; QM_BIN names its folder of programs. */
export const build = dirname(resolve(process.env.QM_BIN ?? join(root, "build/release/bin")));

/** The files of the tree, relative to the root: those that match git's patterns, all without one; also new ones. */
export function filesOfTree(...patterns) {
  const listing = ["ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", ...patterns];
  const files = execFileSync("git", listing, { cwd: root, encoding: "utf8" }).split("\0");
  return files.filter((file) => file && existsSync(join(root, file)));
}

export function read(file) {
  return readFileSync(join(root, file), "utf8");
}

/** What a C++ file includes: `"Name.h"` or `<name>`. */
export function includesOf(file) {
  return [...read(file).matchAll(/^\s*#\s*include\s+("[^"]+"|<[^>]+>)/gm)].map(([, line]) => line);
}

/** The headers of the tree that a C++ file includes itself. */
export function ownHeadersIn(file) {
  const quoted = includesOf(file).filter((line) => line.startsWith('"')).map((line) => line.slice(1, -1));
  return quoted.flatMap((name) => [join(dirname(file), name), name].filter((path) => existsSync(join(root, path))).slice(0, 1));
}

/** Each compiled file of ours with its command as a list of words. */
export function compileCommands() {
  const database = JSON.parse(readFileSync(join(build, "compile_commands.json"), "utf8"));
  return database.map(({ file, command, directory }) => ({ file: relative(root, file), words: wordsOf(command), directory }));
}

/** The words of a command line as CMake writes it: quotes only around parts of words. */
function wordsOf(command) {
  return command.match(/(?:\\.|"(?:\\.|[^"])*"|[^\s"])+/g).map((word) => word.replace(/\\(.)|"/g, "$1"));
}

/** Runs a command in the root. Resolves with its status and all that it wrote. */
export function run(command, args, { cwd = root } = {}) {
  return new Promise((done, fail) => {
    const child = spawn(command, args, { cwd, stdio: ["ignore", "pipe", "pipe"] });
    let output = "";
    child.stdout.on("data", (chunk) => (output += chunk));
    child.stderr.on("data", (chunk) => (output += chunk));
    child.on("error", fail);
    child.on("close", (status) => done({ status, output }));
  });
}

/** Calls `work` with each item, as many at a time as there are cores. Resolves with the results that are not undefined. */
export async function forEachAtOnce(items, work) {
  const left = [...items];
  const results = [];
  const worker = async () => {
    while (left.length > 0) {
      const result = await work(left.shift());
      if (result !== undefined) results.push(result);
    }
  };
  await Promise.all(cpus().map(worker));
  return results;
}
