// The host as a browser starts it: a child process with pipes, in a folder where its files lie.

import { spawn } from "node:child_process";
import { readFile, symlink, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import { bin } from "./build.mjs";
import { frame, FrameReader } from "./frames.mjs";
import { sleep, waitFor } from "./process.mjs";

export const windowTitle = "Quillmark - Select Certificate";
export const pinTitle = "Quillmark";
export const pinMessage = "Please Enter Token PIN";
export const errorTitle = "Exiting Quillmark - Error Loading Token Driver";
export const cancelText = "User Canceled without Selecting Certificate.";
export const noPinText = "Token User PIN required for Token Login, but given empty.";
export const failurePrefix = "QMHost Error: ";

const browserArguments = ["chrome-extension://abcdefghijklmnopabcdefghijklmnop/"];

export class Host {
  #child;
  #frames;
  #desktop;
  #exit;

  /**
   * Starts a host on a desktop, in a new folder that goes with `cleanup`.
   *
   * - `token`: a SoftToken or FakeToken; null for a folder without "QMTokenDriver.so"
   * - `settings`: "QMHostSettings.json", as an object or as the file's text or bytes; null for none. By default all is logged.
   * - `logo`: whether "QMLogo.png" is there
   * - `prepare(folder)`: whatever else the folder needs
   * - `wrapper`: a command in front of the program, such as valgrind with its options
   * - `folder`: a folder of an earlier host, to go on in
   * - `program`: another program than that in the folder, as a path; it is started in its own folder
   */
  static async start({ desktop, cleanup, token = null, settings = { AppLogLevel: 1 }, logo = true, prepare = null,
    args = browserArguments, env = {}, wrapper = [], folder = null, program = null }) {
    const host = new Host();
    host.#desktop = desktop;
    host.folder = folder ?? await cleanup.folder("host");
    let tokenEnv = token?.env ?? {};
    if (!folder) {
      await symlink(join(bin, "QMChromeExtHost"), join(host.folder, "QMChromeExtHost"));
      if (logo) await symlink(join(bin, "QMLogo.png"), join(host.folder, "QMLogo.png"));
      if (settings !== null) await writeFile(join(host.folder, "QMHostSettings.json"), asText(settings));
      if (token) tokenEnv = await token.install(host.folder);
      await prepare?.(host.folder);
    }
    const [command, ...rest] = [...wrapper, program ?? join(host.folder, "QMChromeExtHost"), ...args];
    const child = spawn(command, rest, {
      cwd: program ? dirname(program) : host.folder,
      env: { ...process.env, ...desktop.env, ...tokenEnv, ...env },
      stdio: ["pipe", "pipe", "pipe"],
    });
    host.#child = child;
    host.errors = "";
    child.stderr.on("data", (chunk) => (host.errors += chunk));
    child.stdin.on("error", () => {}); // a host that is gone is seen by its exit, not here
    host.#exit = new Promise((resolve, reject) => {
      child.once("error", reject);
      child.once("close", (code, signal) => resolve({ code, signal }));
    });
    host.#exit.catch(() => {});
    host.#frames = new FrameReader(child.stdout);
    cleanup.addChild(child);
    return host;
  }

  get pid() {
    return this.#child.pid;
  }

  /** The bytes of the output that no whole reply has come from. */
  get outputRest() {
    return this.#frames.rest;
  }

  /** Sends a request as one frame. */
  send(request) {
    this.sendBytes(frame(request));
  }

  sendBytes(bytes) {
    this.#child.stdin.write(bytes);
  }

  /** The next reply as the bytes of its frame; null when the output ended instead. */
  async replyFrame({ timeout = 30_000 } = {}) {
    return this.#within(timeout, "a reply", this.#frames.next());
  }

  /** The next reply, parsed. */
  async reply(options) {
    const bytes = await this.replyFrame(options);
    if (!bytes) throw new Error(`The host ended without a reply${await this.#story()}`);
    return JSON.parse(bytes.subarray(4).toString());
  }

  /** Sends a request and waits for its reply. */
  request(request, options) {
    this.send(request);
    return this.reply(options);
  }

  /** Closes the host's standard input, as a browser does that needs it no more. */
  endInput() {
    this.#child.stdin.end();
  }

  /** Closes the host's standard output and error, as a browser does that is gone. */
  closeOutput() {
    this.#child.stdout.destroy();
  }

  /** How the host ended: { code, signal }. Fails when it has not ended after `timeout` milliseconds. */
  exit({ timeout = 20_000 } = {}) {
    return this.#within(timeout, "the host to end", this.#exit);
  }

  /** Ends the input and waits for the end of the host. */
  finish(options) {
    this.endInput();
    return this.exit(options);
  }

  /** The lines of the log without their time stamps. */
  async logLines() {
    const text = await this.logText();
    return text.split("\n").slice(0, -1).map((line) => line.replace(timeStamp, ""));
  }

  /** The log file as it stands; empty when there is none. */
  logText() {
    return this.readFile("QMSignerExtHostLog.txt").catch(() => "");
  }

  readFile(name, encoding = "utf8") {
    return readFile(join(this.folder, name), encoding);
  }

  // The user at the windows. `options.timeout` is how long to wait for a window, in milliseconds.

  /** Points of the window; GTK puts Cancel left and OK right of the middle. */
  okButton = [344, buttonRow];
  cancelButton = [254, buttonRow];

  /** The select-certificate window, once the certificates' cards are in it. */
  async window(options) {
    const id = await this.#desktop.window(windowTitle, options);
    // At the list's right edge there is nothing but the lines between the cards and the colour of the selected one: the
    // "Loading..." row is white there, and what is not yet painted black.
    const edge = { x: listEdge, y: listTop + 10, width: 1, height: 270 };
    const isOfCards = (colour) => !["ffffff", "000000"].includes(colour);
    await waitFor("the cards", async () => (await this.#desktop.colours(id, edge)).some(isOfCards),
      options);
    return id;
  }

  async clickOk(options) {
    await this.#desktop.click(await this.window(options), ...this.okButton);
  }

  /**
   * Cancel works with no card in the list, too, and while the window is still on its way to the middle of the screen. A
   * window that comes back was that of the start.
   */
  async clickCancel(options) {
    await waitFor("Cancel to hide the window", async () => {
      await this.#desktop.click(await this.#desktop.window(windowTitle, options), ...this.cancelButton);
      const isGone = await this.#desktop.windowGone(windowTitle, { timeout: 2000 }).then(() => true, () => false);
      await sleep(700);
      return isGone && (await this.#desktop.windows(windowTitle)).length === 0;
    }, options);
  }

  /** OK while there is nothing to choose from. */
  async clickOkWithoutCards() {
    await this.#desktop.click(await this.#desktop.window(windowTitle), ...this.okButton);
  }

  /** Clicks into a card of three lines (the first is 0), once or `times` times fast. */
  async clickCard(row, times = 1) {
    await this.#desktop.click(await this.window(), 60, listTop + (row + 0.5) * cardHeight, times);
  }

  /** The colours of the text of a card of three lines. */
  async cardColours(row) {
    const text = { x: 10, y: listTop + row * cardHeight + 8, width: 560, height: 52 };
    return this.#desktop.colours(await this.window(), text);
  }

  /** Types the PIN into the dialog and presses Return. */
  async enterPin(pin, options) {
    const dialog = await this.#desktop.window(pinTitle, options);
    await this.#desktop.type(dialog, pin);
    await this.#desktop.key(dialog, "Return");
  }

  /** Leaves the PIN dialog with Escape. */
  async cancelPin(options) {
    await this.#desktop.key(await this.#desktop.window(pinTitle, options), "Escape");
  }

  async #within(timeout, what, promise) {
    let timer;
    const late = new Promise((_, reject) => {
      timer = setTimeout(async () => {
        reject(new Error(`Waited ${timeout} ms in vain for ${what}${await this.#story()}`));
      }, timeout);
    });
    return Promise.race([promise, late]).finally(() => clearTimeout(timer));
  }

  /** What a failed test needs to know about the host. */
  async #story() {
    const lines = (await this.logLines()).slice(-8).join("\n  ");
    return `.\nEnd of its log:\n  ${lines}\nIts stderr: ${this.errors.slice(-500)}`;
  }
}

// Points of the window. It is 500 pixels high with or without its title bar, by the window manager's leave; these are right
// in both cases, which differ by up to 20 pixels.
const listTop = 82;
const listEdge = 585;
const cardHeight = 73;
const buttonRow = 426;

const timeStamp = /^[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4} /;

function asText(settings) {
  return typeof settings === "string" || Buffer.isBuffer(settings) ? settings : JSON.stringify(settings);
}
