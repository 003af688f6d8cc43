// Running commands, waiting, and undoing what was started.

import { spawn } from "node:child_process";
import { mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { setTimeout as sleep } from "node:timers/promises";

export { sleep };

/** Runs a command to its end. Resolves with stdout (a Buffer), stderr (text) and code; `input` goes to its stdin. */
export function runUnchecked(command, args, { input = "", timeout = 60_000, ...options } = {}) {
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, { ...options, timeout, killSignal: "SIGKILL", stdio: "pipe" });
    const out = [];
    const err = [];
    child.stdout.on("data", (chunk) => out.push(chunk));
    child.stderr.on("data", (chunk) => err.push(chunk));
    child.on("error", (error) => reject(new Error(`${command}: ${error.message}`)));
    child.on("close", (code, signal) => {
      if (signal) reject(new Error(`${command} was ended by ${signal} (after ${timeout} ms at most)`));
      else resolve({ code, stdout: Buffer.concat(out), stderr: Buffer.concat(err).toString() });
    });
    child.stdin.on("error", () => {}); // a command that does not read its input may end before it is written
    child.stdin.end(input);
  });
}

/** Like runUnchecked, but rejects, with the last line that the command wrote, when it does not end with 0. */
export async function run(command, args, options) {
  const result = await runUnchecked(command, args, options);
  if (result.code !== 0) {
    const words = result.stderr.trim() || result.stdout.toString().trim();
    throw new Error(`${command} ${args[0] ?? ""} failed: ${words.split("\n").pop()}`);
  }
  return result;
}

/** Calls `probe` until it gives something true, and gives that. Rejects after `timeout` milliseconds. */
export async function waitFor(what, probe, { timeout = 30_000, interval = 40 } = {}) {
  const end = Date.now() + timeout;
  for (;;) {
    const found = await probe();
    if (found) return found;
    if (Date.now() > end) throw new Error(`Waited ${timeout} ms in vain for ${what}`);
    await sleep(interval);
  }
}

/** What has to be undone, last first. Undoing goes on after a failure and reports the first one. */
export class Cleanup {
  #undo = [];

  add(undo) {
    this.#undo.push(undo);
  }

  /** A new empty folder that goes with the rest. */
  async folder(name) {
    const path = await mkdtemp(join(tmpdir(), `quillmark-${name}-`));
    this.add(() => rm(path, { recursive: true, force: true }));
    return path;
  }

  /** Ends a child process of ours, if it still runs, and waits until it is gone. */
  addChild(child) {
    const gone = new Promise((resolve) => child.once("close", resolve));
    this.add(async () => {
      if (child.exitCode === null && child.signalCode === null) child.kill("SIGKILL");
      await gone;
    });
  }

  async run() {
    let failure;
    while (this.#undo.length > 0) {
      try {
        await this.#undo.pop()();
      } catch (error) {
        failure ??= error;
      }
    }
    if (failure) throw failure;
  }
}
