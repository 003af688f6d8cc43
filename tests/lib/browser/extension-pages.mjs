// What the tests see of the extension's own pages, through the browsers' debugging protocols.

import { waitFor } from "../process.mjs";

const CONSENT = "/consent/consent.html";
const DOCUMENTS = "/viewer/viewer.html";
const OPTIONS = "/options/options.html";
const POPUP = "/popup/popup.html";

/** What a user may have set in the browser: text of a size (2 is 200 %), a window of a width and height. */
const SETTINGS = { isDark: false, hasForcedColours: false, hasReducedMotion: false, text: 1, width: 0, height: 0 };
const USUAL_TEXT = 16;
const USUAL_FIXED_TEXT = 13;

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

  /** Calls a function in the page of this path that the user sees; throws when there is none, or it throws. */
  async at(path, body, ...args) {
    return this.#pages.evaluate(await this.#inSight(path), called(body, args));
  }

  /** Shows that page as `settings` of its user have it: see `SETTINGS`. Undo it with {}. */
  async see(path, settings) {
    const page = await this.#inSight(path);
    await this.#pages.see(page, { ...SETTINGS, ...settings });
    const { isDark, hasForcedColours, text } = { ...SETTINGS, ...settings };
    const isSo = (dark, forced, size) =>
      matchMedia("(prefers-color-scheme: dark)").matches === dark &&
      matchMedia("(forced-colors: active)").matches === forced &&
      Math.abs(parseFloat(getComputedStyle(document.documentElement).fontSize) / size - 1) < 0.2;
    await waitFor("the page to look as it is set", () => this.#pages.evaluate(page, called(isSo, [isDark, hasForcedColours, text * USUAL_TEXT])));
  }

  /** A picture of that page, as PNG. */
  async picture(path) {
    return this.#pages.picture(await this.#inSight(path));
  }

  /** What a screen reader is given of that page, as Chromium's protocol has it. */
  async accessibilityTree(path) {
    const session = await (await this.#inSight(path)).createCDPSession();
    const { nodes } = await session.send("Accessibility.getFullAXTree");
    await session.detach();
    return nodes;
  }

  async #inSight(path) {
    for (const page of await this.#pages.findAll(path)) {
      if (await this.#pages.evaluate(page, "document.visibilityState === 'visible'")) return page;
    }
    throw new Error(`The user sees no page ${path}`);
  }

  /** Opens an own page in a tab in front; gives what closes it. */
  async openInFront(path) {
    const page = await this.#pages.open(path, { background: false });
    return () => this.#pages.close(page);
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
  settings(body, ...args) {
    return this.at(OPTIONS, body, ...args);
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
    await waitFor("the popup's button", () => popup.evaluate((id) => document.getElementById(id)?.ariaDisabled === "false", button));
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
  #sessions = new WeakMap();

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

  async open(path, { background = true } = {}) {
    const page = await this.#browser.newPage({ background });
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

  async see(page, { isDark, hasForcedColours, hasReducedMotion, text, width, height }) {
    // What it has set ends with it.
    if (!this.#sessions.has(page)) this.#sessions.set(page, await page.createCDPSession());
    const session = this.#sessions.get(page);
    await session.send("Emulation.setEmulatedMedia", { features: [
      { name: "prefers-color-scheme", value: isDark ? "dark" : "light" },
      { name: "forced-colors", value: hasForcedColours ? "active" : "none" },
      { name: "prefers-reduced-motion", value: hasReducedMotion ? "reduce" : "no-preference" },
    ] });
    await session.send("Page.setFontSizes", { fontSizes: { standard: USUAL_TEXT * text, fixed: USUAL_FIXED_TEXT * text } });
    await page.setViewport(width ? { width, height } : null);
  }

  picture(page) {
    return page.screenshot();
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

  async open(path, { background = true } = {}) {
    const { context } = await this.#send("browsingContext.create", { type: "tab", background });
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

  async see(context, { isDark, hasForcedColours, hasReducedMotion, text, width, height }) {
    const settings = {
      prefersColorSchemeOverride: isDark ? "dark" : "light",
      forcedColorsOverride: hasForcedColours ? "active" : "none",
      prefersReducedMotionOverride: hasReducedMotion ? "reduce" : "no-preference",
      textZoom: text,
    };
    await this.#inBrowser(`[...Services.wm.getEnumerator("navigator:browser")].flatMap(({ gBrowser }) => gBrowser.browsers)
      .filter(({ currentURI }) => currentURI.spec.startsWith(${JSON.stringify(this.#browser.extensionUrl)}))
      .forEach(({ browsingContext }) => Object.assign(browsingContext, ${JSON.stringify(settings)}))`);
    await this.#send("browsingContext.setViewport", { context, viewport: width ? { width, height } : null });
  }

  async picture(context) {
    return Buffer.from((await this.#send("browsingContext.captureScreenshot", { context })).data, "base64");
  }

  async stopBackground() {
    const stop = `WebExtensionPolicy.getByHostname(${JSON.stringify(new URL(this.#browser.extensionUrl).hostname)})
      .extension.terminateBackground({ ignoreDevToolsAttached: true })`;
    await this.#inBrowser(`${stop}.then(() => true)`);
  }

  /** Evaluates in the browser's own window. */
  async #inBrowser(expression) {
    const { contexts } = await this.#send("browsingContext.getTree", { "moz:scope": "chrome", maxDepth: 0 });
    return this.evaluate(contexts[0].context, expression);
  }
}
