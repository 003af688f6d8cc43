// Runs the test files of a folder with Node's own runner, some at a time, and writes "passed failed skipped" to a file:
//
//   node tests/run.mjs <folder> [<report>] [<part of a file's name>...]
//
// These tests wait for windows, and windows for a busy machine: a file in which something failed is run once more, alone, when
// the others are done. What it says then counts, and that there was a first time is printed.

import { readdirSync, writeFileSync } from "node:fs";
import { basename, join } from "node:path";
import { run } from "node:test";

/** The files mostly wait, for windows and for the host: more of them than cores can run at once. */
const FILES_AT_ONCE = 4;

/** No file of tests takes half as long, also on a slow machine. */
const FILE_TIMEOUT = 1_800_000;

const [folder, report = null, ...names] = process.argv.slice(2);
const files = readdirSync(folder)
  .filter((name) => name.endsWith(".test.mjs") && (names.length === 0 || names.some((part) => name.includes(part))))
  .map((name) => join(process.cwd(), folder, name));

// A file as a whole is reported as a test too: by name on some versions of Node, only when it fails on others.
const isGroup = ({ name, details }) => details?.type === "suite" || name.endsWith(".test.mjs");

/** Runs one file and tells of each test in it. Gives { passed, failed, skipped }. */
function runFile(file) {
  const counts = { passed: 0, failed: 0, skipped: 0 };
  const title = ({ name, details }) =>
    `${basename(file, ".test.mjs")}: ${name} (${Math.round(details?.duration_ms ?? 0)} ms)`;
  const start = performance.now();
  return new Promise((resolve) => {
    run({ files: [file], timeout: FILE_TIMEOUT })
      .on("test:pass", (test) => {
        if (isGroup(test)) return;
        const isSkipped = test.skip !== undefined || test.todo !== undefined;
        counts[isSkipped ? "skipped" : "passed"] += 1;
        console.log(`${isSkipped ? "skip" : "  ok"} ${title(test)}`);
      })
      .on("test:fail", (test) => {
        const error = test.details?.error;
        if (isGroup(test) && error?.failureType === "subtestsFailed") return;
        counts.failed += 1;
        console.log(`FAIL ${title(test)}\n${error?.cause?.stack ?? error?.stack ?? error}`);
      })
      .on("test:stderr", ({ message }) => process.stderr.write(message))
      .on("end", () => {
        console.log(`${basename(file)} took ${Math.round((performance.now() - start) / 1000)} s`);
        resolve(counts);
      })
      .resume();
  });
}

const results = new Map();
const waiting = [...files];
await Promise.all(
  Array.from({ length: FILES_AT_ONCE }, async () => {
    for (let file = waiting.shift(); file; file = waiting.shift()) results.set(file, await runFile(file));
  }),
);
for (const [file, { failed }] of results) {
  if (failed === 0) continue;
  console.log(`Once more, alone: ${basename(file)} (${failed} failed)`);
  results.set(file, await runFile(file));
}

const sum = (what) => [...results.values()].reduce((total, counts) => total + counts[what], 0);
const [passed, failed, skipped] = ["passed", "failed", "skipped"].map(sum);
if (report) writeFileSync(report, `${passed} ${failed} ${skipped}\n`);
process.exitCode = passed > 0 && failed === 0 ? 0 : 1;
