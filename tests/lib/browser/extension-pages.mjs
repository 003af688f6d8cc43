// What the tests see of the extension's own pages, through the browsers' debugging protocols.

import { waitFor } from "../process.mjs";

const CONSENT = "/consent/consent.html";
const DOCUMENTS = "/viewer/viewer.html";
const OPTIONS = "/options/options.html";
const POPUP = "/popup/popup.html";

export class ExtensionPages {
  #pages;
  #options;

  constructor(name, browser) {
    this.#pages = name === "firefox" ? new FirefoxPages(browser) : new ChromiumPages(browser);
  }

  /** Calls a function with JSON values in the consent page; undefined while there is none. */
  async consent(body, ...args) {
    const page = await this.#pages.find(CONSENT);
    return page && this.#pages.evaluate(page, called(body, args)).catch(() => undefined);
  }

  /** The same in the window that shows documents. */
  async documents(body, ...args) {
    const page = await this.#pages.find(DOCUMENTS);
    return page && this.#pages.evaluate(page, called(body, args)).catch(() => undefined);
  }

  /** The window that shows documents, as puppeteer's page; in Chromium. */
  documentsPage() {
    return this.#pages.find(DOCUMENTS);
  }

  /** How many consent pages are open. */
  async consentPages() {
    return this.#pages.count(CONSENT);
  }

  /** Calls a function in the settings page, in a tab of its own behind the others. */
  async evaluate(body, ...args) {
    // The tab may have gone, with the extension or with a test.
    const isThere = this.#options && (await this.#pages.evaluate(this.#options, "true").catch(() => false));
    if (!isThere) this.#options = await this.#open();
    return this.#pages.evaluate(this.#options, called(body, args));
  }

  /** Calls a function in the settings page that the user sees. */
  async settings(body, ...args) {
    for (const page of await this.#pages.findAll(OPTIONS)) {
      if (await this.#pages.evaluate(page, "document.visibilityState === 'visible'")) return this.#pages.evaluate(page, called(body, args));
    }
    throw new Error("The user sees no settings page");
  }

  /** Opens the toolbar's popup in a tab, as openTab does. */
  openPopup() {
    return this.openTab(POPUP);
  }

  /** Opens a page of the extension in a tab behind the others: { evaluate(body, ...args), show(), close() }. */
  async openTab(path) {
    const page = await this.#pages.open(path);
    const evaluate = (body, ...args) => this.#pages.evaluate(page, called(body, args)).catch(() => undefined);
    return { evaluate, show: () => this.#pages.show(page), close: () => this.#pages.close(page) };
  }

  /** Clicks a button of the popup when it can be clicked; gives what is said then. */
  async clickInPopup(button) {
    const popup = await this.openPopup();
    await waitFor("the popup's button", () => popup.evaluate((id) => document.getElementById(id)?.disabled === false, button));
    await popup.evaluate((id) => document.getElementById(id).click(), button);
    const words = await waitFor("the popup's answer", () => popup.evaluate(() => document.getElementById("announcement").textContent));
    await popup.close();
    return words;
  }

  /** Has the browser stop the extension's background, as it does after some time without work. */
  stopBackground() {
    return this.#pages.stopBackground();
  }

  async #open() {
    const page = await this.#pages.open(OPTIONS);
    await waitFor("the settings page", () => this.#pages.evaluate(page, "document.documentElement.lang !== ''").catch(() => false), {
      timeout: 5_000,
    });
    return page;
  }
}

const called = (body, args) => `(${body})(...${JSON.stringify(args)})`;

class ChromiumPages {
  #browser;

  constructor(browser) {
    this.#browser = browser;
  }

  #targets(path) {
    return this.#browser.targets().filter((target) => target.url().startsWith(this.#browser.extensionUrl + path));
  }

  count(path) {
    return this.#targets(path).length;
  }

  find(path) {
    return this.#targets(path)[0]?.asPage();
  }

  findAll(path) {
    return Promise.all(this.#targets(path).map((target) => target.asPage()));
  }

  async open(path) {
    const page = await this.#browser.newPage({ background: true });
    await page.goto(this.#browser.extensionUrl + path).catch(async (error) => {
      await page.close();
      throw error;
    });
    return page;
  }

  evaluate(page, expression) {
    return page.evaluate(expression);
  }

  show(page) {
    return page.bringToFront();
  }

  close(page) {
    return page.close();
  }

  async stopBackground() {
    const [target] = this.#targets("/src/background.js");
    const worker = await target.worker();
    await worker.close();
  }
}

// Puppeteer leaves the extension's pages out; the protocol beneath has them.
class FirefoxPages {
  #browser;

  constructor(browser) {
    this.#browser = browser;
  }

  async #send(method, params) {
    return (await this.#browser.connection.send(method, params)).result;
  }

  async #contexts(path) {
    const { contexts } = await this.#send("browsingContext.getTree", { maxDepth: 0 });
    return contexts.filter(({ url }) => url.startsWith(this.#browser.extensionUrl + path)).map(({ context }) => context);
  }

  async count(path) {
    return (await this.#contexts(path)).length;
  }

  async find(path) {
    return (await this.#contexts(path))[0];
  }

  findAll(path) {
    return this.#contexts(path);
  }

  async open(path) {
    const { context } = await this.#send("browsingContext.create", { type: "tab", background: true });
    await this.#send("browsingContext.navigate", { context, url: this.#browser.extensionUrl + path, wait: "none" });
    return context;
  }

  async evaluate(context, expression, more = {}) {
    const asText = `(async () => JSON.stringify(await (${expression})) ?? "null")()`;
    const { result, exceptionDetails } = await this.#send("script.evaluate", {
      expression: asText, target: { context }, awaitPromise: true, ...more,
    });
    if (exceptionDetails) throw new Error(exceptionDetails.text);
    return JSON.parse(result.value);
  }

  show(context) {
    return this.#send("browsingContext.activate", { context });
  }

  close(context) {
    return this.#send("browsingContext.close", { context });
  }

  async stopBackground() {
    const { contexts } = await this.#send("browsingContext.getTree", { "moz:scope": "chrome", maxDepth: 0 });
    const stop = `WebExtensionPolicy.getByHostname(${JSON.stringify(new URL(this.#browser.extensionUrl).hostname)})
      .extension.terminateBackground({ ignoreDevToolsAttached: true })`;
    await this.evaluate(contexts[0].context, `${stop}.then(() => true)`);
  }
}
