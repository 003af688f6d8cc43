// Everything between a web page and a token: a browser with the extension, the installed signing program, a soft token, and a user.

import { join } from "node:path";

import { waitFor } from "../process.mjs";
import { InstalledProgram } from "../program/installed.mjs";
import { SoftToken } from "../token/soft-token.mjs";
import { connectTo, launchOptions, startBrowser } from "./browser.mjs";
import { ExtensionPages } from "./extension-pages.mjs";
import { serve } from "./site.mjs";
import { BrowserUser } from "./user.mjs";

export class Workplace {
  #product;
  #foreign;

  /**
   * `name` is "chromium" or "firefox". `product`: as of InstalledProgram, and { extension, screenshots }: extension.make(folder)
   * makes the folders `chromium`, `firefox` and `example` in it, extension.ids are { chromium, firefox }; screenshots is the folder
   * for pictures.
   */
  constructor(name, product) {
    this.name = name;
    this.#product = product;
  }

  /**
   * Makes all but the browser, which startBrowser starts; all of it ends with `cleanup`. `pairs`: what is on the token, as of
   * SoftToken.addPair.
   */
  async furnish({ desktop, pairs, pin, cleanup }) {
    this.desktop = desktop;
    this.home = await cleanup.folder(`home-${this.name}`);
    this.token = await SoftToken.create(this.home, { pin });
    for (const pair of pairs) await this.token.addPair(...pair);
    this.program = new InstalledProgram(this.#product, { home: this.home, env: this.token.env });
    await this.program.install();

    this.extensions = await cleanup.folder("extension");
    await this.#product.extension.make(this.extensions);
    this.user = new BrowserUser(desktop, this.name);
    cleanup.add(() => (this.browser ?? this.#foreign)?.close());
  }

  get #surroundings() {
    const extension = join(this.extensions, this.name);
    const { env, isAccessible } = this.desktop;
    return { home: this.home, extension, ids: this.#product.extension.ids, env: { ...env, ...this.token.env }, isAccessible };
  }

  /** In this `language`, or English; `more`: as of startBrowser. */
  async startBrowser({ language, more } = {}) {
    this.browser = await startBrowser(this.name, { ...this.#surroundings, language, more });
    await this.program.follow(this.browser.process().pid);
    this.user.extension = new ExtensionPages(this.name, this.browser);
  }

  /** What somebody else starts Chromium with instead. */
  get launchOptions() {
    return launchOptions(this.#surroundings);
  }

  /** Sees the extension's own pages also in a browser that somebody else has started. */
  async seeExtension() {
    if (this.browser || this.#foreign?.connected) return;
    this.#foreign = await connectTo(this.#surroundings);
    if (!this.#foreign) return;
    await this.program.follow(this.#foreign.pid);
    this.user.extension = new ExtensionPages(this.name, this.#foreign);
  }

  /** The extension's own pages. */
  get extension() {
    return this.user.extension;
  }

  /**
   * Ends the signing program, which keeps the PIN and the list of certificates for as long as it runs, and waits until the extension
   * has heard of that from the browser: a request before that would be that program's.
   */
  async endProgram() {
    await this.program.signal("SIGKILL");
    await this.program.gone();
    if (!(this.browser ?? this.#foreign)?.connected) return;
    const popup = await this.extension.openPopup();
    const hostRuns = async () => (await (globalThis.browser ?? globalThis.chrome).runtime.sendMessage({ type: "state" })).hostRuns;
    await waitFor("the extension to hear that the program has ended", async () => (await popup.evaluate(hostRuns)) === false);
    await popup.close();
  }

  /** Serves these pages, and those of the example, until `cleanup`. Gives the port. */
  async serve({ pages, address, cleanup }) {
    const site = await serve(join(this.extensions, "example"), { pages, address });
    cleanup.add(site.close);
    return site.port;
  }
}
