// The user at the host's windows. `options.timeout` is how long to wait for a window, in milliseconds.

import { sleep, waitFor } from "../process.mjs";
import { PIN_TITLE, WINDOW_TITLE } from "../program/texts.mjs";

// Points of the window. It is 500 pixels high with or without its title bar, by the window manager's leave; these are right
// in both cases, which differ by up to 20 pixels. GTK puts Cancel left and OK right of the middle.
const LIST_TOP = 82;
const LIST_EDGE = 585;
const CARD_HEIGHT = 73;
const OK_BUTTON = [344, 426];
const CANCEL_BUTTON = [254, 426];

/** How long a click or a PIN may take to show effect until it is given again. */
const PATIENCE = 1500;

export class User {
  #lastAct = { title: "", at: 0 };

  constructor(desktop) {
    this.desktop = desktop;
    this.okButton = OK_BUTTON;
    this.cancelButton = CANCEL_BUTTON;
  }

  /** The select-certificate window, once the certificates' cards are in it. */
  async window(options) {
    const id = await this.desktop.window(WINDOW_TITLE, options);
    // At the list's right edge there is nothing but the lines between the cards and the colour of the selected one: the
    // "Loading..." row is white there, and what is not yet painted black.
    const edge = { x: LIST_EDGE, y: LIST_TOP + 10, width: 1, height: 270 };
    const isOfCards = (colour) => !["ffffff", "000000"].includes(colour);
    await waitFor("the cards", async () => (await this.desktop.colours(id, edge)).some(isOfCards), options);
    return id;
  }

  async clickOk(options) {
    await this.desktop.click(await this.window(options), ...OK_BUTTON);
  }

  /**
   * Cancel works with no card in the list, too, and while the window is still on its way to the middle of the screen. A
   * window that comes back was that of the start.
   */
  async clickCancel(options) {
    await waitFor("Cancel to hide the window", async () => {
      await this.desktop.click(await this.desktop.window(WINDOW_TITLE, options), ...CANCEL_BUTTON);
      const isGone = await this.desktop.windowGone(WINDOW_TITLE, { timeout: 2000 }).then(() => true, () => false);
      await sleep(700);
      return isGone && (await this.desktop.windows(WINDOW_TITLE)).length === 0;
    }, options);
  }

  /** OK while there is nothing to choose from. */
  async clickOkWithoutCards() {
    await this.desktop.click(await this.desktop.window(WINDOW_TITLE), ...OK_BUTTON);
  }

  /** Clicks into a card of three lines (the first is 0), once or `times` times fast. */
  async clickCard(row, times = 1) {
    await this.desktop.click(await this.window(), 60, LIST_TOP + (row + 0.5) * CARD_HEIGHT, times);
  }

  /** Chooses the certificate of a row (the first is 0), however tall the cards are, and presses OK. */
  async chooseRow(row, options) {
    const id = await this.window(options);
    await this.desktop.click(id, 60, LIST_TOP + 10); // the list has the keyboard now
    for (const key of ["Home", ...Array(row).fill("Down")]) await this.desktop.key(id, key);
    await this.desktop.click(id, ...OK_BUTTON);
  }

  /** The colours of the text of a card of three lines. */
  async cardColours(row) {
    const text = { x: 10, y: LIST_TOP + row * CARD_HEIGHT + 8, width: 560, height: 52 };
    return this.desktop.colours(await this.window(), text);
  }

  pinWindow(options) {
    return this.desktop.window(PIN_TITLE, options);
  }

  /** Types the PIN into the dialog and presses Return. */
  async enterPin(pin, options) {
    await this.desktop.key(await this.writePin(pin, options), "Return");
  }

  /** Types the PIN into the dialog, and gives that. */
  async writePin(pin, options) {
    const dialog = await this.pinWindow(options);
    await this.desktop.type(dialog, pin);
    return dialog;
  }

  /** Leaves the PIN dialog with Escape. */
  async cancelPin(options) {
    await this.desktop.key(await this.pinWindow(options), "Escape");
  }

  /**
   * Presses the button ("ok" or "cancel"), types the PIN if asked for it, until `reply` has come, and again when a click goes
   * astray; gives the reply.
   */
  async answerUntil(reply, { button = "ok", pin = "" } = {}) {
    let done = false;
    const settled = reply.finally(() => (done = true));
    settled.catch(() => {});
    this.#lastAct = { title: "", at: 0 };
    while (!done) {
      if (!(await this.#act(PIN_TITLE, (id) => this.#typePin(id, pin)))) {
        await this.#act(WINDOW_TITLE, (id) => this.#press(id, button));
      }
      await Promise.race([settled.catch(() => {}), sleep(30)]);
    }
    return settled;
  }

  /** Does something with the window of that title, when there is one and its turn has come. Says whether there is one. */
  async #act(title, act) {
    const [id] = await this.desktop.windows(title);
    if (!id) return false;
    const isNew = this.#lastAct.title !== title || Date.now() - this.#lastAct.at > PATIENCE;
    // A window may go while it is being clicked at.
    if (isNew && (await act(id).then(() => true, () => false))) this.#lastAct = { title, at: Date.now() };
    return true;
  }

  #press(id, button) {
    const place = (button === "ok" ? OK_BUTTON : CANCEL_BUTTON).map(String);
    return this.desktop.run("xdotool", ["mousemove", "--window", id, ...place, "click", "1"], { timeout: 5000 });
  }

  #typePin(id, pin) {
    const typed = ["type", "--delay", "5", "--args", "1", pin, "key", "Return"];
    return this.desktop.run("xdotool", ["windowactivate", "--sync", id, ...typed], { timeout: 5000 });
  }
}
