// What the verifier says, as a word to compare.

import assert from "node:assert/strict";

import { VerificationError } from "quillmark-verify";

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
