// What a machine can see of the house style.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { existsSync, readFileSync, writeFileSync } from "node:fs";
import { homedir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";

import { build, compileCommands, filesOfTree, forEachAtOnce, ownHeadersIn, read, root, run } from "./lib/tree.mjs";

/** One screen is a function, some screens are a file: above this it has more than one subject. */
const MAX_LINES = 400;

/** A list of tests has one subject and is read one test at a time. */
const MAX_TEST_LINES = 520;

/** A line of a table of texts, which nobody reads as a whole. */
const TEXT_OF_TABLE = /^ +[A-Z][A-Z_]+: ".*",$/;

/** What clang-tidy may take in one run, in milliseconds: some seconds of processor time for each file that has changed. */
const TIDY_TIME = 300_000;

/** The version that .clang-tidy is written for, Debian 12's. Others find other things, and npm has none. */
const TIDY_VERSION = "14";

/** The first line of a shell script. */
const shell = /^#!.*\b(ba|da)?sh\b|^# shellcheck shell=/;

/** A pipe to head, to grep -q, -m or -l, to sed with its command q, or to awk with exit. */
const pipe = /(?<!\|)\|&?\s*(?:\w+=\S*\s+|command\s+)*/;
const earlyEnds = [
  /head\b.*/,
  /[ef]?grep\b[^|\n]*\s(?:-[a-zA-Z]*[qmlL]|--quiet|--silent|--max-count|--files).*/,
  /sed\b[^|\n]*(?:[\s'"{};!$/\d])q\d*\s*(?:['"};\s)]|$)/,
  /awk\b.*\bexit\b/,
];
const pipeToEarlyEnd = new RegExp(`${pipe.source}(?:${earlyEnds.map(({ source }) => source).join("|")})`, "gm");

test("the C++ is formatted as .clang-format says", async () => {
  // Versions differ in what they make of one file: package-lock.json has the one that judges.
  await clean(join(root, "node_modules/.bin/clang-format"), ["--dry-run", "-Werror", ...filesOfTree("*.cpp", "*.h")]);
});

test("clang-tidy finds nothing in the host, in ck, in the token driver and in its tool", async (t) => {
  const { output: version } = await run("clang-tidy", ["--version"]);
  const [, major] = /version (\d+)\./.exec(version);
  if (major !== TIDY_VERSION) return t.skip(`clang-tidy ${TIDY_VERSION} judges, and this one is ${major}`);

  const sources = filesOfTree("ck/*.cpp", "QMChromeExtHost/*.cpp", "QMTokenDriver/*.cpp", "quillmark-tokens/*.cpp");
  const commands = new Map(compileCommands().map(({ file, words }) => [file, words]));
  assert.deepEqual(sources.filter((file) => !commands.has(file)), [], "not compiled by this build");

  // What passed once is not asked again until one of the texts that decide about it has changed.
  const passedFile = join(build, "clang-tidy-passed.json");
  const passed = new Set(existsSync(passedFile) ? JSON.parse(readFileSync(passedFile, "utf8")) : []);
  const keyOf = (file) => {
    const texts = [file, ...headersBelow(file)].map((each) => `${each}\n${read(each)}`);
    return createHash("sha256").update(JSON.stringify([version, read(".clang-tidy"), commands.get(file), texts])).digest("hex");
  };
  const keys = new Map(sources.map((file) => [file, keyOf(file)]));
  const end = Date.now() + TIDY_TIME;
  const failures = await forEachAtOnce(sources.filter((file) => !passed.has(keys.get(file))), async (file) => {
    if (Date.now() > end) return undefined;
    const { status, output } = await run("clang-tidy", ["--quiet", "-p", build, file]);
    if (status !== 0) return output;
    passed.add(keys.get(file));
    writeFileSync(passedFile, JSON.stringify([...keys.values()].filter((key) => passed.has(key))));
  });
  if (failures.length > 0) assert.fail(failures.join("\n"));
  const left = sources.filter((file) => !passed.has(keys.get(file)));
  if (left.length > 0) t.skip(`no time for ${left.length} of ${sources.length} files; the next run goes on with them`);
});

test("templates take a class, not a typename", () => {
  const files = filesOfTree("*.cpp", "*.h");
  assert.ok(files.length > 0);
  assert.deepEqual(files.filter((file) => /\btemplate\s*<[^>]*\btypename\b/.test(read(file))), []);
});

test("shellcheck finds nothing in the shell scripts", async () => {
  await clean("shellcheck", ["--external-sources", ...scripts(shell)]);
});

// The writer then ends by SIGPIPE or not, as it happens, and with `pipefail` the script with it.
test("no pipe in a shell script has a reader that may end first", () => {
  const files = scripts(shell);
  assert.ok(files.length > 0);
  assert.deepEqual(files.flatMap((file) => (commandsOf(file).match(pipeToEarlyEnd) ?? []).map((pipe) => `${file}: ${pipe}`)), []);
});

test("pyflakes finds nothing in the Python scripts", async () => {
  await clean("pyflakes3", [...scripts(/^#!.*\bpython3?\b/), ...filesOfTree("*.py")]);
});

test(`no source file has more than ${MAX_LINES} lines`, () => {
  const sources = filesOfTree().filter((file) => /\.(cpp|h|mjs|js|css|html|sh|py|cmake)$|CMakeLists\.txt$/.test(file));
  assert.ok(sources.length > 0);
  const long = [...new Set([...sources, ...scripts(/^#!/)])].filter(
    (file) => linesOf(file) > (file.startsWith("tests/") ? MAX_TEST_LINES : MAX_LINES));
  assert.deepEqual(long, []);
});

test("no file names a place of one machine or a package registry's address", () => {
  const places = [root, `${homedir()}/`, /\/tmp\/\w/, /\bregistry\.[a-z]+\.[a-z]+/, /\/home\/(?!user\b)\w/];
  const naming = filesOfTree().flatMap((file) => places.filter((place) => {
    const text = read(file);
    return typeof place === "string" ? text.includes(place) : place.test(text);
  }).map((place) => `${file}: ${place}`));
  assert.deepEqual(naming, []);
});

const linesOf = (file) => read(file).split("\n").filter((line) => !TEXT_OF_TABLE.test(line)).length - 1;

/** A shell script without its comments, each command on one line. */
function commandsOf(file) {
  return read(file).replace(/^\s*#.*$|\s#\s.*$/gm, "").replace(/\\\n|(?<=\|)\s*\n/g, " ");
}

/** Runs a checker that has to find something to check, end with 0 and say nothing. */
async function clean(checker, args) {
  assert.ok(args.some((arg) => !arg.startsWith("-")), `nothing to check for ${checker}`);
  const { status, output } = await run(checker, args);
  if (status !== 0 || output !== "") assert.fail(`${checker} ended with ${status}:\n${output}`);
}

/** The files whose first line matches. */
function scripts(firstLine) {
  return filesOfTree().filter((file) => firstLine.test(read(file).split("\n", 1)[0]));
}

/** All headers of the tree that a file includes, also by way of others. */
function headersBelow(file, seen = new Set()) {
  for (const header of ownHeadersIn(file)) {
    if (seen.has(header)) continue;
    seen.add(header);
    headersBelow(header, seen);
  }
  return [...seen].sort();
}
