// Computers on which the launcher is installed, and starting it there.

import { spawn } from "node:child_process";
import { join } from "node:path";

import { Computer } from "./computer.mjs";

/**
 * A function that starts the launcher with arguments and waits for its end; its `as` starts it behind a command that makes
 * another user of it, its `running` does not wait.
 */
function launching(launcher, computer) {
  const start = (...args) => computer.run(launcher, ...args);
  start.running = (...args) => spawn(launcher, args, { cwd: computer.root, env: computer.env, stdio: ["pipe", "ignore", "ignore"] });
  start.as = (...command) => computer.run(...command, launcher);
  return start;
}

export async function forOneUser(t) {
  const computer = await Computer.make(t, { browsers: ["chromium"] });
  await computer.install();
  const folder = computer.userFolder;
  return { computer, folder, start: launching(join(folder, "quillmark-host"), computer) };
}

export async function forAllUsers(t) {
  const computer = await Computer.make(t, { browsers: ["chromium"] });
  await computer.install("--system", "--root", computer.root);
  const launcher = join(computer.root, "usr/lib/quillmark/quillmark-host");
  return { computer, folder: computer.userFolder, start: launching(launcher, computer) };
}

/** The body of a test on a computer with this installation. */
export function installed(setUp, body) {
  return async (t) => body(await setUp(t), t);
}

/** A computer whose program does this in the place of the real one. */
export async function running(t, script) {
  const { computer, folder } = await forOneUser(t);
  await computer.setProgram(`#!/bin/sh\n${script}\n`);
  await computer.install();
  return { computer, folder, log: join(folder, "modules.log"), start: launching(join(folder, "quillmark-host"), computer) };
}
