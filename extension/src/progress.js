import { PROGRESS_MS } from "./limits.js";

/** Tells a page how far its request has come: the newest state, and not more often than it helps. */
export class Progress {
  #send;
  #lastTime = -Infinity;
  #newest;
  #timer;

  /** `send(state)` takes a state to the page. */
  constructor(send) {
    this.#send = send;
  }

  tell(state) {
    this.#newest = state;
    const wait = this.#lastTime + PROGRESS_MS - performance.now();
    if (wait <= 0) this.#tellNewest();
    else this.#timer ??= setTimeout(() => this.#tellNewest(), wait);
  }

  /** Nothing is told any more. */
  end() {
    clearTimeout(this.#timer);
    this.#send = () => {};
  }

  #tellNewest() {
    clearTimeout(this.#timer);
    this.#timer = undefined;
    this.#lastTime = performance.now();
    this.#send(this.#newest);
  }
}
