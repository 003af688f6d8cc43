/**
 * The journal of signatures, chained by hashes: each entry is a line of JSON whose `previous` is the SHA-256 of the line before
 * it (64 zeros before the first). What was left out, added or changed in the middle later breaks the chain.
 */

import { sha256Hex } from "./digest.js";
import { MAX_JOURNAL_ENTRIES } from "./limits.js";

const STATE = "journal";
const START = { next: 1, first: 1, head: "0".repeat(64) };

// A signature writes its own block anew, not the whole journal.
const BLOCK_ENTRIES = 100;
const blockOf = (number) => `${STATE}.${Math.floor((number - 1) / BLOCK_ENTRIES)}`;

export class Journal {
  #area;
  #last = Promise.resolve();

  /** `area`: the browser's storage area that it is kept in. */
  constructor(area) {
    this.#area = area;
  }

  /** Adds an entry; one after another, whoever calls. */
  append(entry) {
    this.#last = this.#last.catch(() => {}).then(() => this.#append(entry));
    return this.#last;
  }

  async #append(entry) {
    const { next, first, head } = await this.#state();
    const block = blockOf(next);
    const { [block]: lines = [] } = await this.#area.get(block);
    const line = JSON.stringify({ number: next, ...entry, previous: head });
    const oldest = next - first >= MAX_JOURNAL_ENTRIES + BLOCK_ENTRIES ? blockOf(first) : undefined;
    await this.#area.set({
      [block]: [...lines, line],
      [STATE]: { next: next + 1, first: oldest ? first + BLOCK_ENTRIES : first, head: await sha256Hex(line) },
    });
    if (oldest) await this.#area.remove(oldest);
  }

  /** The lines, oldest first, and the hash of the last one as `head`. */
  async read() {
    const { next, first, head } = await this.#state();
    const blocks = [];
    for (let number = first; number < next; number += BLOCK_ENTRIES) blocks.push(blockOf(number));
    const content = await this.#area.get(blocks);
    return { lines: blocks.flatMap((block) => content[block] ?? []).slice(-MAX_JOURNAL_ENTRIES), head };
  }

  async #state() {
    return (await this.#area.get(STATE))[STATE] ?? START;
  }
}
