/** Quillmark's doctor: a second program, which looks what keeps this computer from signing. It only reads. */

import { QuillmarkError } from "../quillmark.js";
import { classifyDisconnect } from "../src/failures.js";
import { message } from "../src/messages.js";

const api = globalThis.browser ?? globalThis.chrome;

/** The name under which it is registered with the browsers. */
export const DOCTOR_NAME = "quillmark.doctor";

// The doctor's program gives up after four minutes, and tells why.
const ANSWER_MS = 250_000;

/**
 * @typedef {{verdict: "can" | "unknown" | "cannot", findings: Finding[], tokens: object | null}} Diagnosis `tokens` is what
 *   `quillmark-tokens --json` says; null when it says nothing.
 * @typedef {{check: string, level: "ok" | "warning" | "unknown" | "failure", text: string, remedy: string | null,
 *   command: string | null, browser: string | null}} Finding
 */

/**
 * Resolves to a Diagnosis; rejects with a QuillmarkError. For the extension's own pages, which alone the browser lets do this:
 * no message of a page or of its frame leads here.
 */
export async function examine() {
  const nonce = crypto.randomUUID();
  let timer;
  const late = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new QuillmarkError("TIMEOUT", { message: message("doctor_late") })), ANSWER_MS);
  });
  try {
    const answer = await Promise.race([api.runtime.sendNativeMessage(DOCTOR_NAME, { nonce }).catch(rejected), late]);
    if (answer?.nonce !== nonce || !Array.isArray(answer.findings)) {
      throw new QuillmarkError("BAD_REPLY", { message: message("doctor_no_answer"), detail: answer?.problem });
    }
    return answer;
  } finally {
    clearTimeout(timer);
  }
}

function rejected({ message: detail }) {
  throw new QuillmarkError(classifyDisconnect(detail, { answered: false }), { detail });
}
