import { QuillmarkError } from "../quillmark.js";

/** A request's end from outside: the page's withdrawal, or the end of the user's time, which runs only while it may. */
export class Limit {
  #controller = new AbortController();
  #left;
  #timer;

  constructor(milliseconds) {
    this.#left = milliseconds;
  }

  /** Aborts with the QuillmarkError that the request then rejects with. */
  get signal() {
    return this.#controller.signal;
  }

  /** `reason`: an error's code, or the QuillmarkError itself. */
  abort(reason) {
    clearTimeout(this.#timer);
    this.#controller.abort(typeof reason === "string" ? new QuillmarkError(reason) : reason);
  }

  /** Awaits the work with the clock running. */
  async during(work) {
    const start = performance.now();
    this.#timer = setTimeout(() => this.abort("TIMEOUT"), this.#left);
    try {
      return await work();
    } finally {
      clearTimeout(this.#timer);
      this.#left = Math.max(0, this.#left - (performance.now() - start));
    }
  }
}
