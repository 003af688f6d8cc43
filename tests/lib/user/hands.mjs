// The user's hands where they are faster or clumsier than User's: they press at a place of the screen, whatever is there.

import { sleep } from "../process.mjs";

export class Hands {
  #desktop;

  constructor(desktop) {
    this.#desktop = desktop;
  }

  /** Puts the pointer at a point of the window's place on the screen, also where another window covers it. */
  async point({ id, x, y }) {
    await this.#do("mousemove", "--window", id, "--", String(Math.round(x)), String(Math.round(y)));
  }

  /** Clicks where the pointer is. 250 ms between two clicks are a usual double click. */
  async click(times = 1) {
    await this.#do("click", "--repeat", String(times), "--delay", "250", "1");
  }

  /** Presses and releases keys one after the other, for the window that has the keyboard. */
  async keys(names, delay = 120) {
    await this.#do("key", "--delay", String(delay), ...names);
  }

  /** Holds a key down. */
  async hold(name, milliseconds) {
    await this.#do("keydown", name);
    await sleep(milliseconds).finally(() => this.#do("keyup", name));
  }

  /** Drags from one point to another, as slowly as a hand. */
  async drag(from, to) {
    await this.point(from);
    await this.#do("mousedown", "1");
    for (const part of [0.02, 0.1, 0.3, 0.5, 0.7, 0.9]) {
      await sleep(60);
      await this.point({ id: from.id, x: from.x + 30 * part, y: from.y + 30 * part });
    }
    await this.point({ ...to, x: to.x - 4 });
    await sleep(200);
    await this.point(to);
    await sleep(400);
    await this.#do("mouseup", "1");
  }

  #do(...args) {
    return this.#desktop.run("xdotool", args, { timeout: 20_000 });
  }
}
