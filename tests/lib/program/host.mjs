// The host as a browser starts it: a child process with pipes, in a folder where its files lie.

import { spawn } from "node:child_process";
import { readFile, symlink, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import { frame, FrameReader } from "./frames.mjs";

const BROWSER_ARGUMENTS = ["chrome-extension://abcdefghijklmnopabcdefghijklmnop/"];

const TIME_STAMP = /^[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4} /;

export class Host {
  #child;
  #frames;
  #exit;

  /**
   * Starts a host on a desktop, in a new folder that goes with `cleanup`.
   *
   * - `product`: the files { program, driver, logo }
   * - `token`: a token of this harness; null for a folder without "QMTokenDriver.so"
   * - `settings`: "QMHostSettings.json", as an object or as the file's text or bytes; null for none. By default all is logged.
   * - `logo`: whether "QMLogo.png" is there
   * - `prepare(folder)`: whatever else the folder needs
   * - `wrapper`: a command in front of the host, such as valgrind with its options
   * - `folder`: a folder of an earlier host, to go on in
   * - `program`: another program than that in the folder, as a path; it is started in its own folder
   */
  static async start({ desktop, cleanup, folder = null, args = BROWSER_ARGUMENTS, env = {}, wrapper = [], program = null, ...files }) {
    const host = new Host();
    host.folder = folder ?? await cleanup.folder("host");
    if (folder === null) await layOut(host.folder, files);
    const [command, ...rest] = [...wrapper, program ?? join(host.folder, "QMChromeExtHost"), ...args];
    const child = spawn(command, rest, {
      cwd: program === null ? host.folder : dirname(program),
      env: { ...process.env, ...desktop.env, ...files.token?.env, ...env },
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

  /** The next reply as its text. */
  async replyText(options) {
    const bytes = await this.replyFrame(options);
    if (bytes === null) throw new Error(`The host ended without a reply${await this.#story()}`);
    return new TextDecoder("utf-8", { fatal: true }).decode(bytes.subarray(4));
  }

  /** The next reply, parsed. */
  async reply(options) {
    return JSON.parse(await this.replyText(options));
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
    return text.split("\n").slice(0, -1).map((line) => line.replace(TIME_STAMP, ""));
  }

  /** The log file as it stands; empty when there is none. */
  logText() {
    return this.readFile("QMSignerExtHostLog.txt").catch(() => "");
  }

  readFile(name, encoding = "utf8") {
    return readFile(join(this.folder, name), encoding);
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

/** Puts into the folder what a host finds there when it starts. */
async function layOut(folder, { product, token = null, settings = { AppLogLevel: 1 }, logo = true, prepare = null }) {
  await symlink(product.program, join(folder, "QMChromeExtHost"));
  if (logo) await symlink(product.logo, join(folder, "QMLogo.png"));
  if (settings !== null) await writeFile(join(folder, "QMHostSettings.json"), asText(settings));
  if (token !== null) {
    await symlink(token.module ?? product.driver, join(folder, "QMTokenDriver.so"));
    await token.prepare?.(folder);
  }
  await prepare?.(folder);
}

function asText(settings) {
  return typeof settings === "string" || Buffer.isBuffer(settings) ? settings : JSON.stringify(settings);
}
