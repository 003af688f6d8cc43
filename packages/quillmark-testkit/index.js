/**
 * A real browser with the Quillmark extension, the signing program, a crypto token in software, and a user who answers their
 * windows: for tests of web pages that sign. index.d.ts describes each member, README.md is the way in.
 */

import { randomBytes } from "node:crypto";
import { readFile } from "node:fs/promises";
import { homedir } from "node:os";
import { join } from "node:path";

import { AttentiveUser } from "./lib/browser/attentive-user.mjs";
import { Workplace } from "./lib/browser/workplace.mjs";
import { Cleanup } from "./lib/cleanup.mjs";
import { Desktop } from "./lib/display/desktop.mjs";
import { Authority } from "./lib/token/certificates.mjs";
import { orderOf } from "./certificates.js";
import { lookAtComputer } from "./computer.js";
import { FAULTS } from "./faults.js";

const BROWSERS = ["chromium", "firefox"];
const CONSENTS = ["once", "page", "always", "deny"];

const SIGNALS = { SIGINT: 2, SIGTERM: 15, SIGHUP: 1 };
const LEFT_TO_THE_KIT = { handleSIGINT: false, handleSIGTERM: false, handleSIGHUP: false };

/** Starts all of it. Rejects, with nothing left running, when something is missing on this computer. */
export const startKit = (options) => Kit.start(options);

class Kit {
  #cleanup = new Cleanup();
  #parts;
  #mend = null;
  #stopping;

  static async start(options = {}) {
    const kit = new Kit();
    try {
      await kit.#start(options);
    } catch (error) {
      await kit.stop().catch(() => {});
      throw error;
    }
    return kit;
  }

  async #start({ browser = "chromium", certificates = [{}], pin = "1234", product, display, launch = true }) {
    check(BROWSERS.includes(browser), `browser has to be one of ${BROWSERS.join(", ")}`);
    check(launch || browser === "chromium", "Only Chromium can be started by somebody else");
    check(/^[ -~]{4,32}$/.test(pin), "pin has to be 4 to 32 characters of ASCII");
    const orders = certificates.map(orderOf);
    const found = await lookAtComputer({ browser, display: !display, product });
    this.#endWithProcess();

    const desktop = display ? ownDesktop(display) : await Desktop.start(this.#cleanup);
    const authority = await Authority.create(await this.#cleanup.folder("authority"));
    const issued = await Promise.all(orders.map((order, i) => authority.issue(`certificate-${i}`, order)));
    const pairs = issued.map((certificate) => [certificate, randomBytes(20).toString("hex")]);
    const workplace = new Workplace(browser, found);
    await workplace.furnish({ desktop, pairs, pin, cleanup: this.#cleanup });
    const watcher = new AttentiveUser(workplace.user, { onExtension: () => workplace.seeExtension() });
    this.#parts = { workplace, watcher, authority, pin, orders };

    this.authority = await readFile(authority.certificate, "utf8");
    this.certificates = await Promise.all(issued.map(({ pem }) => readFile(pem, "utf8")));
    this.display = desktop.display;
    if (launch) await workplace.startBrowser({ more: LEFT_TO_THE_KIT });
    else this.launchOptions = workplace.launchOptions;
    this.browser = workplace.browser;
    this.#endWithProcess();
  }

  async page(url) {
    check(this.browser, "The browser of this kit is somebody else's: open pages there");
    const page = await this.browser.newPage();
    await page.goto(url);
    return page;
  }

  async serve(pages = {}) {
    return `http://localhost:${await this.#parts.workplace.serve({ pages, cleanup: this.#cleanup })}`;
  }

  async whenAsked({ consent = "once", documents = consent === "deny" ? "deny" : "sign", certificate = 0, pin = this.#parts.pin } = {}) {
    check(CONSENTS.includes(consent), `consent has to be one of ${CONSENTS.join(", ")}`);
    check(["sign", "deny"].includes(documents), "documents has to be sign or deny");
    check(certificate === "cancel" || (Number.isInteger(certificate) && certificate >= 0), "certificate has to be a row or cancel");
    check(pin === "cancel" || /^[ -~]*$/.test(pin), "pin has to be characters of ASCII or cancel");
    this.#parts.watcher.answer({ consent, documents, certificate, pin });
  }

  get asked() {
    return this.#parts.watcher.asked;
  }

  async fault(name, options = {}) {
    check(Object.hasOwn(FAULTS, name), `There is no fault ${name}; there are ${Object.keys(FAULTS).join(", ")}`);
    await this.mend();
    this.#mend = await FAULTS[name](this.#parts, options);
    await this.#parts.workplace.endProgram();
  }

  async mend() {
    const mend = this.#mend;
    this.#mend = null;
    if (!mend) return;
    await mend();
    await this.#parts.workplace.endProgram();
  }

  stop() {
    return (this.#stopping ??= this.#stop());
  }

  async #stop() {
    await this.browser?.close().catch(() => {});
    await this.#parts?.watcher.leave();
    await this.#cleanup.run();
    process.off("exit", this.#onExit);
    for (const signal of Object.keys(SIGNALS)) process.off(signal, this.#onSignal);
  }

  #onExit = () => this.#cleanup.removeFolders();
  #onSignal = (signal) => this.stop().catch(() => {}).finally(() => process.exit(128 + SIGNALS[signal]));

  // Where nobody has stopped the kit, the kernel ends the display with this process, and puppeteer the browser. The folders go after
  // that: hence the last in the row.
  #endWithProcess() {
    process.off("exit", this.#onExit).once("exit", this.#onExit);
    for (const signal of Object.keys(SIGNALS)) process.off(signal, this.#onSignal).once(signal, this.#onSignal);
  }
}

/** A display that is there already, with its window manager. Its owner's key lies in a home that is not the browser's. */
function ownDesktop(display) {
  const desktop = new Desktop(display, new Cleanup());
  desktop.env.XAUTHORITY = process.env.XAUTHORITY ?? join(homedir(), ".Xauthority");
  return desktop;
}

function check(isRight, words) {
  if (!isRight) throw new TypeError(words);
}
