// Running commands, and waiting.

import { spawn } from "node:child_process";
import { setTimeout as sleep } from "node:timers/promises";

export { sleep };

/** A user who is nobody in particular, and what root puts in front of a command to have it run as this one. */
export const NOBODY = 65534;
export const AS_NOBODY = ["setpriv", `--reuid=${NOBODY}`, `--regid=${NOBODY}`, "--clear-groups"];

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
