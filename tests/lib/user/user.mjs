// A user who answers the host's windows as they come, and again when a click goes astray.

import { PIN_TITLE, WINDOW_TITLE } from "../program/host.mjs";
import { run, sleep } from "../process.mjs";

/** How long a click or a PIN may take to show effect until it is given again. */
const PATIENCE = 1500;

/** Where the buttons of the select-certificate window are, with or without a title bar. */
const BUTTONS = { ok: ["344", "426"], cancel: ["254", "426"] };

export class User {
  #desktop;
  #lastAct = { title: "", at: 0 };

  constructor(desktop) {
    this.#desktop = desktop;
  }

  /** Presses the button ("ok" or "cancel"), types the PIN if asked for it, until `reply` has come; gives the reply. */
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
    const [id] = await this.#desktop.windows(title);
    if (!id) return false;
    const isNew = this.#lastAct.title !== title || Date.now() - this.#lastAct.at > PATIENCE;
    if (isNew && (await act(id))) this.#lastAct = { title, at: Date.now() };
    return true;
  }

  #press(id, button) {
    return this.#xdotool("mousemove", "--window", id, ...BUTTONS[button], "click", "1");
  }

  #typePin(id, pin) {
    return this.#xdotool("windowactivate", "--sync", id, "type", "--delay", "5", "--args", "1", pin, "key", "Return");
  }

  /** Says whether it was done: a window may go while it is being clicked at. */
  async #xdotool(...args) {
    try {
      await run("xdotool", args, { env: { ...process.env, ...this.#desktop.env }, timeout: 5000 });
      return true;
    } catch {
      return false;
    }
  }
}
