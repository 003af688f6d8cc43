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

  /** Resolves to the text that the page answers, null where it failed. */
  ask(query) {
    return new Promise((resolve, reject) => {
      if (this.#signal.aborted) return void reject(this.#signal.reason);
      const number = ++this.#lastNumber;
      this.#open.set(number, { resolve, reject });
      this.#send({ type: "query", number, query });
    });
  }

  /** Takes an answer. One that nobody has asked for, or a second one, has no effect. */
  take({ number, text }) {
    this.#open.get(number)?.resolve(typeof text === "string" ? text : null);
    this.#open.delete(number);
  }
}
