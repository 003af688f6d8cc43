import { QuillmarkError } from "../quillmark.js";
import { PAGE_ANSWER_MS } from "./limits.js";

/** What the extension asks a page's library within a request, such as for a piece of a document. */
export class PageQueries {
  #send;
  #signal;
  #open = new Map();
  #lastNumber = 0;

  /** `send(message)` takes a query to the page; the signal's abort ends those that wait. */
  constructor(send, signal) {
    this.#send = send;
    this.#signal = signal;
    signal.addEventListener("abort", () => {
      for (const { reject } of this.#open.values()) reject(signal.reason);
    });
  }

  /** Resolves to the text that the page answers, null where it failed. Rejects with TIMEOUT when it does not answer in time. */
  async ask(query) {
    this.#signal.throwIfAborted();
    const number = ++this.#lastNumber;
    let timer;
    try {
      return await new Promise((resolve, reject) => {
        this.#open.set(number, { resolve, reject });
        const late = new QuillmarkError("TIMEOUT", { detail: `The page has not answered the extension (${query.what}).` });
        timer = setTimeout(() => reject(late), PAGE_ANSWER_MS);
        this.#send({ type: "query", number, query });
      });
    } finally {
      clearTimeout(timer);
      this.#open.delete(number);
    }
  }

  /** Takes an answer. One that nobody has asked for, or a second one, has no effect. */
  take({ number, text }) {
    this.#open.get(number)?.resolve(typeof text === "string" ? text : null);
  }
}
