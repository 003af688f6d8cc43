// A workplace for the tests of a file: with sites, and pages that end with the test.

import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { after, before } from "node:test";

import { Cleanup } from "../cleanup.mjs";
import { waitFor } from "../process.mjs";
import { BINARY_ID } from "../token/soft-token.mjs";
import { World } from "../world.mjs";
import { framing, PAGE, ready } from "./page.mjs";
import { canSetPolicies, setPolicy } from "./policies.mjs";
import { Workplace } from "./workplace.mjs";

export class Rig extends Workplace {
  #product;
  #isAccessible;
  #cleanup = new Cleanup();
  #begun = new WeakSet();
  #pages = { "/": PAGE };

  /**
   * Call it once in a file, or once in a suite of it, outside of the tests, with "chromium" or "firefox". `product`: as of World and
   * Workplace. An `accessible` one tells screen readers what it shows, and has no administrator: Chromium's settings are all users',
   * and those of another file's rig.
   */
  static forThisFile(name, product, { accessible = false } = {}) {
    const rig = new Rig(name, product);
    rig.#product = product;
    rig.#isAccessible = accessible;
    // In this order: the display is there before the browser, and goes after it.
    after(() => rig.#cleanup.run());
    rig.world = World.forThisFile(product, { accessible });
    before(() => rig.#create());
    return rig;
  }

  async #create() {
    // Node may begin all hooks of a file at once.
    await waitFor("the display and the authority", () => this.world.judges);
    this.certificate = await this.world.certificate();
    const pairs = [[this.certificate, BINARY_ID]];
    await this.furnish({ desktop: this.world.desktop, pairs, cleanup: this.#cleanup });
    // One server, two origins; and an address at which the extension is not present.
    const port = await this.#serve();
    this.origin = `http://localhost:${port}`;
    this.otherOrigin = `http://127.0.0.1:${port}`;
    this.addPage("/framing", framing(this.otherOrigin));
    this.outsideOrigin = `http://127.0.0.2:${await this.#serve("127.0.0.2")}`;

    this.deniedOrigin = `http://127.0.0.1:${await this.#serve()}`;
    if (canSetPolicies(this.name) && !this.#isAccessible) await this.setPolicy({ deniedOrigins: [this.deniedOrigin] });
    await mkdir(this.#product.screenshots, { recursive: true });
    await this.startBrowser();
  }

  #serve(address, cleanup = this.#cleanup) {
    return this.serve({ pages: this.#pages, address, cleanup });
  }

  /** Puts a page on all sites: the usual page with more of HTML, or only the HTML when it is a document of its own. */
  addPage(path, html) {
    this.#pages[path] = html.startsWith("<!doctype") ? html : `${PAGE}${html}`;
  }

  /** An origin that no test has used, with the same pages, until the test `t` ends. */
  async freshOrigin(t, host = "localhost") {
    return `http://${host}:${await this.#serve("127.0.0.1", this.world.cleanupOf(t))}`;
  }

  /** Sets what an administrator sets, until all ends. The browser reads it when it starts. */
  setPolicy(data) {
    return setPolicy(this.name, { ids: this.#product.extension.ids, home: this.home, data, cleanup: this.#cleanup });
  }

  /** Ends the browser and starts it anew, in this language or English, with the profile that it has in Chromium, and a new one in Firefox. */
  async restartBrowser(options) {
    await this.browser.close();
    await this.startBrowser(options);
    this.user.questionsSeen.clear();
  }

  /** Has the browser load the extension anew, which forgets its questions and refusals. */
  async reloadExtension() {
    await this.browser.installExtension(join(this.extensions, this.name));
    this.user.questionsSeen.clear();
  }

  /**
   * The extension asks ten questions a minute at most, and tests are faster than people: with the extension loaded anew
   * the minute begins anew.
   */
  async restForQuestions() {
    if (this.user.questionsSeen.size > 4) await this.reloadExtension();
  }

  /** Allows an origin for good, as the user's own answer does, without the windows. */
  async allow(origin) {
    await this.extension.evaluate(async (added) => {
      const { local } = (globalThis.browser ?? globalThis.chrome).storage;
      const { allowedOrigins = [] } = await local.get("allowedOrigins");
      await local.set({ allowedOrigins: [...allowedOrigins, added].sort() });
    }, origin);
  }

  /** Opens a page. With the test `t` all pages are closed, and with them what they have started. */
  async page(t, { origin = this.origin, path = "/" } = {}) {
    const page = await this.browser.newPage();
    this.#endWith(t);
    await page.goto(`${origin}${path}`);
    return path === "/index.html" ? page : ready(page);
  }

  /** Opens a page of an origin that no test has used, and that the user has allowed for good if wanted: { origin, page }. */
  async freshPage(t, { allowed = false } = {}) {
    const origin = await this.freshOrigin(t);
    if (allowed) await this.allow(origin);
    return { origin, page: await this.page(t, { origin }) };
  }

  /** Opens a page with a frame of another fresh origin: { page, frame, origin } with the frame's origin. */
  async framedPage(t) {
    const [around, origin] = [await this.freshOrigin(t), await this.freshOrigin(t, "127.0.0.1")];
    const path = `/around-${new URL(origin).port}`;
    this.addPage(path, framing(origin));
    const page = await this.page(t, { origin: around, path });
    return { page, origin, frame: await this.frameOf(page, origin) };
  }

  /** The page's frame whose address begins in this way, once it is ready. */
  async frameOf(page, address) {
    return ready(await waitFor("the frame", () => page.frames().find((each) => each.url().startsWith(address))));
  }

  // With the last of a test's pages the signing program ends, so that the next test begins without it. A window that a page
  // has opened would be where the browser opens the next one.
  #endWith(t) {
    if (this.#begun.has(t)) return;
    this.#begun.add(t);
    t.after(async () => {
      const [, ...pages] = await this.browser.pages();
      for (const page of pages) await page.close().catch(() => {});
      await this.program.gone();
    });
  }

  /** A picture of the whole screen, kept in the folder for pictures. */
  screenshot(what) {
    return this.world.desktop.screenshot(join(this.#product.screenshots, `${this.name}-${what}.png`));
  }
}
