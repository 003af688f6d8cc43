// A user who cannot see the screen: presses the next key when the effect of the last one was to be heard.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";

import { PIN_TITLE, WINDOW_TITLE } from "../program/texts.mjs";

/** A card of the host's list that has the keyboard, and the list while there is none. */
const CARD = /^focus list item .*selected$/;
export const LOADING = 'focus list item "Loading..."';

export class Ears {
  #desktop;
  #heard = 0;

  constructor(reader, desktop) {
    this.reader = reader;
    this.#desktop = desktop;
  }

  /** Waits for these lines, one after the other, behind what was waited for before. */
  async hear(...lines) {
    for (const line of lines) this.#heard = await this.reader.hears(line, { after: this.#heard }) + 1;
  }

  /** Presses a key in the window of that title, and waits for what is then to be heard. */
  async press(key, line, title = WINDOW_TITLE) {
    await this.#desktop.key(await this.#desktop.window(title), key);
    if (line) await this.hear(line);
  }

  /** Types a PIN into the dialog, once it was heard of. */
  async enterPin(pin) {
    await this.hear('focus password text "Please Enter Token PIN"');
    const dialog = await this.#desktop.window(PIN_TITLE);
    if (pin) await this.#desktop.type(dialog, pin);
    await this.#desktop.key(dialog, "Return");
  }

  /** Begins anew. */
  forget() {
    this.reader.forget();
    this.#heard = 0;
  }

  /**
   * What was heard from the window on that was the last to come before the first line that is `first`, or the last of all where
   * `first` is null: what is heard of the windows on the way there, and when, is up to chance. So is on a busy machine whether
   * "Loading..." is still there when the host's window has the keyboard: it is left out unless it is what comes first.
   */
  async heardFrom(first = CARD) {
    await this.reader.silence();
    const lines = this.reader.lines().filter((line) => line !== LOADING || first?.test(line)).filter((line, i, all) => line !== all[i - 1]);
    const end = first === null ? lines.length : lines.findIndex((line) => first.test(line));
    return lines.slice(lines.slice(0, end).findLastIndex((line) => line.startsWith("window ")));
  }
}

/** These lines must be the transcript in a file. */
export async function expectTranscript(lines, file) {
  assert.equal(lines.map((line) => `${line}\n`).join(""), await readFile(file, "utf8"));
}
