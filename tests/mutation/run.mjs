// Makes small faults in the code, one at a time in a copy of the tree, and runs the tests that should notice:
//
//   node tests/mutation/run.mjs <folder of a copy>,<folder of another>... <number> <first> [<subject>...]
//
// It prints each mutant that no test has noticed, and at the end a line for each subject. Copies are worked on side by side.

import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { mutantsOf } from "./mutants.mjs";

const built = (targets) => () => `cmake --build --preset debug --target ${targets}`;
const PROGRAM = "QM_BIN=build/debug/bin node tests/run.mjs tests/program ''";
const UNITS = "build/debug/tests";

/**
 * What is mutated, and how its tests are run, the quickest first: `build`, of the mutated file, fails for a mutant that is none, and
 * one of `tests` should fail for all others. Tests in browsers take too long for each of hundreds of mutants.
 */
const SUBJECTS = {
  host: {
    files: ["QMChromeExtHost/*.cpp"],
    build: built("QMChromeExtHost host_tests window_tests"),
    tests: [`${UNITS}/host_tests`, `${PROGRAM} actions cms dispatch framing pkcs7 replies selection session settings signing closing window`],
  },
  ck: {
    files: ["ck/*.cpp"],
    build: built("ck_tests host_tests QMChromeExtHost"),
    tests: [`${UNITS}/ck_tests`, `${UNITS}/host_tests`, `${PROGRAM} actions certificates cms`],
  },
  driver: { files: ["QMTokenDriver/*.cpp"], build: built("driver_tests"), tests: [`${UNITS}/unit/driver/driver_tests`] },
  extension: {
    files: ["extension/src/*.js", "extension/quillmark.js"],
    build: (file) => `node --check ${file}`,
    tests: ["node --test $(ls tests/extension/*.test.mjs | grep -v pdf-corpus)"],
  },
  packaging: {
    files: ["packaging/*.py", "packaging/quillmark-browsers", "packaging/quillmark-doctor", "packaging/quillmark-doctor-host"],
    build: (file) => `python3 -m ast ${file}`,
    tests: ["QM_BIN=build/debug/bin node tests/run.mjs tests/packaging '' browsers doctor policies"],
  },
};

/** A mutant that keeps its tests busy for that many times the usual is noticed: it hangs. */
const PATIENCE = 4;

/** Runs a command in a copy: { isGood, seconds }. It is ended, with what it has started, after `limit` seconds. */
async function runIn(copy, command, limit = 1800) {
  const begun = performance.now();
  const child = spawn("timeout", ["--kill-after=5", `${limit}`, "bash", "-c", command], { cwd: copy, stdio: "ignore", detached: true });
  const [code] = await once(child, "close");
  return { isGood: code === 0, seconds: (performance.now() - begun) / 1000 };
}

/** "noticed", "not viable" or "survived". */
async function fateOf({ file, text }, copy, { build, tests }, limits) {
  const path = join(copy, file);
  const original = await readFile(path, "utf8");
  await writeFile(path, text);
  try {
    if (!(await runIn(copy, build(file))).isGood) return "not viable";
    for (const [i, command] of tests.entries()) if (!(await runIn(copy, command, limits[i])).isGood) return "noticed";
    return "survived";
  } finally {
    await writeFile(path, original);
  }
}

async function mutate(name, copies, number, first) {
  const subject = SUBJECTS[name];
  const files = execFileSync("git", ["ls-files", ...subject.files], { cwd: copies[0] }).toString().trim().split("\n");
  const all = (await Promise.all(files.map(async (file) => mutantsOf(file, await readFile(join(copies[0], file), "utf8"))))).flat();
  const waiting = all.sort((one, other) => (one.order < other.order ? -1 : 1)).slice(first);

  const limits = [];
  for (const copy of copies) {
    await runIn(copy, subject.build(files[0]));
    for (const [i, command] of subject.tests.entries()) {
      const { isGood, seconds } = await runIn(copy, command);
      if (!isGood) throw new Error(`${command} fails without a mutant, in ${copy}`);
      limits[i] = Math.ceil(Math.max(limits[i] ?? 0, PATIENCE * copies.length * seconds));
    }
  }
  const counts = { "noticed": 0, "not viable": 0, "survived": 0 };
  await Promise.all(copies.map(async (copy) => {
    while (counts.noticed + counts.survived < number && waiting.length > 0) {
      const mutant = waiting.shift();
      const fate = await fateOf(mutant, copy, subject, limits);
      counts[fate]++;
      if (fate === "survived") console.log(`${mutant.file}:${mutant.line}\n  - ${mutant.before}\n  + ${mutant.after}`);
    }
  }));
  return { subject: name, places: all.length, ...counts };
}

const [folders, number, first, ...names] = process.argv.slice(2);
const rows = [];
for (const name of names.length ? names : Object.keys(SUBJECTS)) rows.push(await mutate(name, folders.split(","), Number(number), Number(first)));
for (const { subject, places, noticed, survived } of rows) {
  console.log(`${subject}: ${noticed} of ${noticed + survived} noticed, ${survived} survived; there are ${places} places in all`);
}
