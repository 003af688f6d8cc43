/** One at a time, in the order of arrival; those who wait are told how many come first. */
export class Queue {
  #turns = [];

  /** How many have entered and not left: the one whose turn it is and those who wait. */
  get length() {
    return this.#turns.length;
  }

  /**
   * Resolves to a function that ends the turn, when it is this caller's turn. `onWaiting` is called with the number of
   * those who come first, now and whenever it changes. An abort of the signal rejects with its reason.
   */
  enter({ signal, onWaiting }) {
    return new Promise((resolve, reject) => {
      const turn = {
        onWaiting,
        begin: () => {
          signal.removeEventListener("abort", abort);
          resolve(() => this.#leave(turn));
        },
      };
      const abort = () => {
        this.#leave(turn);
        reject(signal.reason);
      };
      if (signal.aborted) return void reject(signal.reason);
      signal.addEventListener("abort", abort);
      this.#turns.push(turn);
      if (this.#turns.length === 1) turn.begin();
      else onWaiting(this.#turns.length - 1);
    });
  }

  #leave(turn) {
    const place = this.#turns.indexOf(turn);
    if (place === -1) return;
    this.#turns.splice(place, 1);
    if (place === 0) this.#turns[0]?.begin();
    for (let ahead = Math.max(place, 1); ahead < this.#turns.length; ahead++) this.#turns[ahead].onWaiting(ahead);
  }
}
