/** What was signed lately: in the journal, in the toolbar's popup, and on the toolbar's badge. */

import { MAX_RECENT } from "./limits.js";

const STATE = "signatures";

export class Signatures {
  #journal;
  #session;
  #showCount;

  /** `session`: storage that ends with the browser; `showCount(number)` puts a number on the toolbar's button. */
  constructor({ journal, session, showCount }) {
    this.#journal = journal;
    this.#session = session;
    this.#showCount = showCount;
  }

  /**
   * Keeps what became of a request to sign. `isPrivate`: it came from a private window, of which nothing is left behind;
   * `isSilent`: no window was shown for it.
   */
  async add(entry, { isPrivate, isSilent }) {
    const timed = { time: new Date().toISOString(), ...entry };
    const { recent, silent } = await this.#state();
    const newest = isPrivate ? { ...timed, origin: null } : timed;
    const count = silent + (isSilent ? 1 : 0);
    await this.#session.set({ [STATE]: { recent: [newest, ...recent].slice(0, MAX_RECENT), silent: count } });
    this.#showCount(count);
    if (!isPrivate) await this.#journal.append(timed);
  }

  /** The latest, newest first; their user has now seen them. */
  async look() {
    const { recent } = await this.#state();
    await this.#session.set({ [STATE]: { recent, silent: 0 } });
    this.#showCount(0);
    return recent;
  }

  async #state() {
    return (await this.#session.get(STATE))[STATE] ?? { recent: [], silent: 0 };
  }
}
