/** The window's way to the background. */

import { QuillmarkError } from "../quillmark.js";

const api = globalThis.browser ?? globalThis.chrome;

export class Background {
  #port = api.runtime.connect({ name: "consent" });
  #id = location.hash.slice(1);
  #open = new Map();
  #lastNumber = 0;

  /** `onQuestion(question)` is called with what the window is for, `onGone()` when nobody waits for it any more. */
  constructor({ onQuestion, onGone }) {
    this.#port.onDisconnect.addListener(onGone);
    this.#port.onMessage.addListener(({ type, question, number, value, error }) => {
      if (type === "gone") onGone();
      if (type === "question") onQuestion(question);
      if (type === "return") this.#settle(number, value, error);
    });
    this.#post({ type: "ready" });
  }

  /** Calls what the background does for the window, by its name. */
  call(name, values = {}) {
    return new Promise((resolve, reject) => {
      const number = ++this.#lastNumber;
      this.#open.set(number, { resolve, reject });
      this.#post({ type: "call", call: { number, name, values } });
    });
  }

  answer(answer) {
    this.#post({ type: "answer", answer });
  }

  finish() {
    this.#post({ type: "finished" });
  }

  #post(message) {
    this.#port.postMessage({ id: this.#id, ...message });
  }

  #settle(number, value, error) {
    const { resolve, reject } = this.#open.get(number);
    this.#open.delete(number);
    if (error) reject(new QuillmarkError(error.code, error));
    else resolve(value);
  }
}
