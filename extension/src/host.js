/** The signing program: started when it is needed, asked one thing at a time, ended when nobody needs it. */

import { QuillmarkError } from "../quillmark.js";
import { classifyDisconnect, classifyFailure } from "./failures.js";
import { MINUTE_MS } from "./limits.js";
import { Sites } from "./sites.js";

/** The name under which the host is registered with the browsers. */
export const HOST_NAME = "quillmark.host";

// A program that is closed while its window is open does not notice; the browser kills it, Chromium after 2 seconds,
// Firefox after 3. Two windows side by side would leave the user to guess which one counts.
const KILL_MS = 3_500;

const FAILURE_PREFIX = "QMHost Error: ";

export class Host {
  #connectNative;
  #lastError;
  #pinLife;
  #port;
  #pending;
  #timer;
  #gone = Promise.resolve();

  /**
   * What this run of the host has seen: whether it has answered, the sites that it has served, whether the token has
   * signed, and the times of its start and its last use. Undefined while the host is not running.
   * @type {{answered: boolean, sites: Sites, loggedIn: boolean, started: number, used: number} | undefined}
   */
  run;

  /**
   * `connectNative(name)` opens a port to the host; `lastError(port)` tells why the browser closed one; `pinLife()`
   * resolves to the minutes that the host may be quiet, and run: {quietMinutes, longestMinutes}.
   */
  constructor({ connectNative, lastError, pinLife }) {
    this.#connectNative = connectNative;
    this.#lastError = lastError;
    this.#pinLife = pinLife;
  }

  /**
   * Sends one request, starting the host if needed, and resolves to the text of its successful reply. Only one
   * request may be open at a time. Rejects with a QuillmarkError; an abort of the signal ends the host, because it
   * has no other way to close its window, and rejects with the signal's reason. `isUse`: false for a sign of life, which
   * does not lengthen the life of the PIN. `run`: the run of the host that is meant; HOST_EXITED when there is another.
   */
  async request(message, signal, { isUse = true, run } = {}) {
    await this.keepTime();
    signal.throwIfAborted();
    await Promise.race([this.#gone, new Promise((resolve) => signal.addEventListener("abort", resolve))]);
    signal.throwIfAborted();
    if (run && run !== this.run) throw new QuillmarkError("HOST_EXITED");
    if (!this.#port) this.#open();

    const nonce = crypto.randomUUID();
    const abort = () => this.#end(signal.reason);
    signal.addEventListener("abort", abort);
    try {
      const reply = await new Promise((resolve, reject) => {
        this.#pending = { nonce, resolve, reject };
        this.#port.postMessage({ ...message, nonce });
      });
      return this.#textOf(reply);
    } finally {
      signal.removeEventListener("abort", abort);
      this.#pending = undefined;
      if (isUse && this.run) this.run.used = Date.now();
      await this.keepTime();
    }
  }

  /** Ends the host if it runs; a request that is open rejects with this code. */
  close(code = "HOST_EXITED", detail) {
    this.#end(new QuillmarkError(code, { detail }));
  }

  /**
   * Ends the host, which remembers the PIN for as long as it runs, when its time is over and it is not at work; and looks
   * again when it will be. By the clock on the wall, for a computer may have slept meanwhile.
   */
  async keepTime() {
    clearTimeout(this.#timer);
    if (!this.run) return;
    const { quietMinutes, longestMinutes } = await this.#pinLife();
    if (!this.run || this.#pending) return;
    const { started, used } = this.run;
    const left = Math.min(used + quietMinutes * MINUTE_MS, started + longestMinutes * MINUTE_MS) - Date.now();
    clearTimeout(this.#timer);
    if (left <= 0) this.close();
    else this.#timer = setTimeout(() => this.keepTime(), left);
  }

  #open() {
    const port = this.#connectNative(HOST_NAME);
    this.#port = port;
    this.run = { answered: false, sites: new Sites(), loggedIn: false, started: Date.now(), used: Date.now() };
    port.onMessage.addListener((reply) => this.#receive(port, reply));
    port.onDisconnect.addListener(() => {
      const detail = this.#lastError(port);
      if (port !== this.#port) return;
      this.#forget(new QuillmarkError(classifyDisconnect(detail, this.run), { detail }));
    });
  }

  #receive(port, reply) {
    if (port !== this.#port) return;
    const wellFormed = [0, 1].includes(reply?.status_cd) && typeof reply.result === "string";
    if (!this.#pending || !wellFormed || reply.nonce !== this.#pending.nonce) {
      return this.#end(new QuillmarkError("BAD_REPLY", { detail: "The reply does not belong to the request." }));
    }
    const { resolve } = this.#pending;
    this.#pending = undefined;
    this.run.answered = true;
    resolve(reply);
  }

  #textOf({ status_cd: succeeded, result }) {
    if (succeeded) return result;
    const text = result.startsWith(FAILURE_PREFIX) ? result.slice(FAILURE_PREFIX.length) : result;
    const { code, restart, ...more } = classifyFailure(text, this.run);
    if (restart) this.close();
    throw new QuillmarkError(code, more);
  }

  #end(reason) {
    if (!this.#port) return;
    const busy = this.#pending !== undefined;
    this.#port.disconnect();
    this.#forget(reason);
    if (busy) this.#gone = new Promise((resolve) => setTimeout(resolve, KILL_MS));
  }

  #forget(reason) {
    clearTimeout(this.#timer);
    this.#port = undefined;
    this.run = undefined;
    this.#pending?.reject(reason);
    this.#pending = undefined;
  }
}
