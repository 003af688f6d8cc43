// The logs that the launcher keeps and cuts.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { existsSync, statSync } from "node:fs";
import { chmod, mkdir, readdir, readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { waitFor } from "../lib/kit.mjs";
import { running } from "./lib/launching.mjs";

// ---- what modules write to stderr

test("What is written to stderr while the host runs is kept for this user alone, and is not in the browser's own log", async (t) => {
  const { log, start } = await running(t, "echo module: hello >&2");
  for (const times of [1, 2]) {
    assert.deepEqual(await start(), { code: 0, out: "", err: "" });
    assert.equal(await readFile(log, "utf8"), "module: hello\n".repeat(times));
  }
  assert.equal(statSync(log).mode & 0o777, 0o600);
});

test("More than 256 KiB of it is cut when the host starts, and what came last stays", async (t) => {
  const { log, start } = await running(t, "echo module: last >&2");
  await writeFile(log, "0123456789abcde\n".repeat(16_384));
  await start();
  assert.equal(statSync(log).size, 262_144 + "module: last\n".length);
  await start();
  const kept = await readFile(log, "utf8");
  assert.match(kept, /\n0123456789abcde\nmodule: last\nmodule: last\n$/);
  assert.ok(kept.length < 131_072, `${kept.length} bytes`);
});

test("Where it cannot be kept, it goes nowhere, and the host is started all the same", async (t) => {
  const { log, start } = await running(t, "echo module: hello >&2; echo started");
  await mkdir(log);
  assert.deepEqual(await start(), { code: 0, out: "started\n", err: "" });
});

test("Whoever starts the host on a terminal sees what is written to stderr", async (t) => {
  const { log, start } = await running(t, "echo module: hello >&2");
  const { out } = await start.as("script", "--quiet", "--log-out", "/dev/null", "--command");
  assert.equal(out, "module: hello\r\n");
  assert.equal(existsSync(log), false);
});

// ---- the host's log

const HOST_LOG = "QMSignerExtHostLog.txt";
const LINES = Array.from({ length: 70_000 }, (_, i) => `line ${String(i).padStart(10, "0")}\n`).join("");

test("A log of more than 1 MiB is cut when the host starts: its last quarter MiB stays, in whole lines", async (t) => {
  const { folder, start } = await running(t, `echo new >>${HOST_LOG}`);
  const log = join(folder, HOST_LOG);
  await writeFile(log, LINES.slice(0, 1_048_576));
  await start();
  assert.equal(statSync(log).size, 1_048_576 + "new\n".length, "not more than 1 MiB");
  await start();
  const kept = await readFile(log, "utf8");
  assert.match(kept, /^(line \d{10}\n)+new\nnew\n$/);
  assert.ok(kept.length > 262_100 && kept.length < 262_200, `${kept.length} bytes`);
  assert.equal(statSync(log).mode & 0o777, 0o600);
  assert.deepEqual((await readdir(folder)).filter((name) => name.endsWith(".new")), []);
});

test("A log is not cut while a program runs that writes it, and is at the next start without one", async (t) => {
  const { folder, start } = await running(t, `echo "$1 begins" >>${HOST_LOG}; cat >/dev/null; echo "$1 ends" >>${HOST_LOG}`);
  const log = join(folder, HOST_LOG);
  await writeFile(log, LINES);
  const first = start.running("first");
  await waitFor("the first program", async () => (await readFile(log, "utf8")).includes("first begins"));
  await writeFile(log, (await readFile(log, "utf8")) + LINES + LINES);
  await Promise.all(["second", "third", "fourth"].map((name) => start(name)));
  first.stdin.end();
  await once(first, "exit");
  const all = await readFile(log, "utf8");
  for (const name of ["first", "second", "third", "fourth"]) assert.match(all, new RegExp(`${name} begins\n[^]*${name} ends\n`));
  assert.ok(all.length > 2_000_000);
  await start("fifth");
  assert.ok(statSync(log).size < 300_000);
});

test("A lock that somebody else holds on the folder keeps nobody from signing", async (t) => {
  const { folder, start } = await running(t, "echo started");
  const holder = spawn("flock", [folder, "sh", "-c", "echo locked; exec sleep 60"], { stdio: ["ignore", "pipe", "ignore"] });
  t.after(() => holder.kill());
  await once(holder.stdout, "data");
  assert.equal((await start()).out, "started\n");
  assert.equal(holder.exitCode, null);
});

test("Programs that start at once cut a log once, and lose no line of each other", async (t) => {
  const { folder, start } = await running(t, `for i in 1 2 3 4 5 6 7 8; do echo "$1.$i" >>${HOST_LOG}; done`);
  await writeFile(join(folder, HOST_LOG), LINES);
  const names = Array.from({ length: 12 }, (_, i) => `program-${i}`);
  await Promise.all(names.map((name) => start(name)));
  const lines = new Set((await readFile(join(folder, HOST_LOG), "utf8")).split("\n"));
  for (const name of names) for (const i of [1, 2, 3, 4, 5, 6, 7, 8]) assert.ok(lines.has(`${name}.${i}`), `${name}.${i}`);
});

test("A log that cannot be cut, and a computer without the command for locks, keep nobody from signing", async (t) => {
  const { folder, start, computer } = await running(t, "echo started");
  await writeFile(join(folder, HOST_LOG), LINES);
  await mkdir(join(folder, `${HOST_LOG}.new`));
  assert.deepEqual(await start(), { code: 0, out: "started\n", err: "" });
  const commands = join(computer.folder, "commands");
  await computer.write(join(commands, "flock"), "#!/bin/sh\nexit 127\n");
  await chmod(join(commands, "flock"), 0o755);
  computer.more = { PATH: `${commands}:${process.env.PATH}` };
  assert.deepEqual(await start(), { code: 0, out: "started\n", err: "" });
  assert.equal(statSync(join(folder, HOST_LOG)).size, LINES.length);
});
