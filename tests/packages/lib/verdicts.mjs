// What the verifier says, as a word to compare.

import assert from "node:assert/strict";

import { VerificationError } from "quillmark-verify";

/** The seconds of processor time that something takes: other programs on the machine do not make it longer. */
export async function secondsOf(work) {
  const begin = process.cpuUsage();
  await work();
  const { user, system } = process.cpuUsage(begin);
  return (user + system) / 1_000_000;
}

/** "accepted", or the code; anything but a VerificationError is thrown on. */
export async function verdictOf(promise) {
  try {
    await promise;
    return "accepted";
  } catch (error) {
    if (!(error instanceof VerificationError)) throw error;
    assert.equal(typeof error.message, "string");
    return error.code;
  }
}
