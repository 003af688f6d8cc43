// Everything between a web page and a token: a browser with the extension, the installed signing program, a soft token,
// sites, and a user.

import { createHash } from "node:crypto";
import { copyFile, mkdir, readdir, readFile, readlink, rm, writeFile } from "node:fs/promises";
import { dirname, join, resolve } from "node:path";
import { after, before } from "node:test";
import { fileURLToPath } from "node:url";

import { make, manifest } from "../../../extension/make.mjs";
import { bin } from "../quillmark.mjs";
import { FakeToken } from "../token/fake-token.mjs";
import { Cleanup, run, waitFor } from "../process.mjs";
import { SoftToken } from "../token/soft-token.mjs";
import { BINARY_ID, World } from "../world.mjs";
import { startBrowser } from "./browser.mjs";
import { ExtensionPages } from "./extension-pages.mjs";
import { serve } from "./site.mjs";
import { User } from "./user.mjs";

export const root = resolve(dirname(fileURLToPath(import.meta.url)), "../../..");
const screenshots = join(root, "build/screenshots");
const registration = JSON.parse(await readFile(join(root, "packaging/registration.json"), "utf8"));

// A page of a site that uses the page library. `ask` turns what an operation comes to into a value for the tests.
const PAGE = `<!doctype html><meta charset="utf-8"><title>Test page</title><link rel="icon" href="data:,">
<script type="module">
  import * as library from "../../browser/lib/quillmark.js";
  import { prepareSignature, sampleDocument } from "../../browser/lib/pdf-signing.js";
  window.progress = [];
  window.ask = async (operation, args, options = {}) => {
    window.withdrawal = new AbortController();
    const onProgress = ({ state, ahead }) => progress.push(state === "waiting" ? ahead : state);
    try {
      return { value: await library[operation](...args, { signal: withdrawal.signal, onProgress, ...options }) };
    } catch ({ code, message, detail, ckr }) {
      return { code, message, detail, ckr };
    }
  };
  window.signPdf = async (name, thumbprint) => {
    const pdf = await sampleDocument([name]);
    let prepared;
    const makeBytes = async () => (prepared = await prepareSignature(pdf, { reason: name })).covered;
    const { hash, hashAlgorithm } = await library.suitableDigest(makeBytes);
    const { value, ...failure } = await ask("signPdfHash", [hash, thumbprint], { hashAlgorithm });
    if (!value) return failure;
    return { value: btoa(Array.from(prepared.insert(value), (byte) => String.fromCharCode(byte)).join("")), hashAlgorithm };
  };
</script><p id="gesture">A harmless place to click</p>`;

// Python's expression ANSWER, of the request `request`, is the message that goes back.
const BROKEN_PROGRAM = `#!/usr/bin/python3
import json, struct, sys
while prefix := sys.stdin.buffer.read(4):
    request = json.loads(sys.stdin.buffer.read(struct.unpack("=I", prefix)[0]))
    answer = ANSWER
    message = (answer if isinstance(answer, str) else json.dumps(answer)).encode()
    sys.stdout.buffer.write(struct.pack("=I", len(message)) + message)
    sys.stdout.flush()
`;

/** Whether the tests can set an administrator's policies for this browser. */
export const canSetPolicies = (name) => name === "firefox" || process.getuid() === 0;

// Gives the uppermost folder that it had to make, if any.
async function writeWithFolders(file, content) {
  const made = await mkdir(dirname(file), { recursive: true });
  await writeFile(file, JSON.stringify(content));
  return made;
}

export class Rig {
  #cleanup = new Cleanup();
  #begun = new WeakSet();
  #pages = { "/": PAGE };

  /** Call it once in a file, outside of the tests, with "chromium" or "firefox". */
  static forThisFile(name) {
    const rig = new Rig();
    rig.name = name;
    // In this order: the display is there before the browser, and goes after it.
    after(() => rig.#cleanup.run());
    rig.world = World.forThisFile();
    before(() => rig.#create());
    return rig;
  }

  async #create() {
    // Node may begin all hooks of a file at once.
    await waitFor("the display and the authority", () => this.world.judges);
    this.home = await this.#cleanup.folder(`home-${this.name}`);
    this.certificate = await this.world.certificate();
    this.token = await SoftToken.create(this.home);
    await this.token.addPair(this.certificate, BINARY_ID);
    await this.install();

    this.extensions = await this.#cleanup.folder("extension");
    await make(this.extensions);
    // One server, two origins; and an address at which the extension is not present.
    const port = await this.#serve();
    this.origin = `http://localhost:${port}`;
    this.otherOrigin = `http://127.0.0.1:${port}`;
    this.addPage("/framing", framing(this.otherOrigin));
    this.outsideOrigin = `http://127.0.0.2:${await this.#serve("127.0.0.2")}`;

    this.deniedOrigin = `http://127.0.0.1:${await this.#serve()}`;
    if (canSetPolicies(this.name)) await this.setPolicy({ deniedOrigins: [this.deniedOrigin] });
    await mkdir(screenshots, { recursive: true });
    this.user = new User(this.world.desktop, this.name);
    this.#cleanup.add(() => this.browser.close());
    await this.startBrowser();
  }

  async #serve(address, cleanup = this.#cleanup) {
    const site = await serve(join(this.extensions, "example"), { pages: this.#pages, address });
    cleanup.add(site.close);
    return site.port;
  }

  /** Puts a page on all sites: the usual page with more of HTML, or only the HTML when it is a document of its own. */
  addPage(path, html) {
    this.#pages[path] = html.startsWith("<!doctype") ? html : PAGE + html;
  }

  /** An origin that no test has used, with the same pages, until the test `t` ends. */
  async freshOrigin(t, host = "localhost") {
    return `http://${host}:${await this.#serve("127.0.0.1", this.world.cleanupOf(t))}`;
  }

  /** Sets what an administrator sets. The browser reads it when it starts. */
  async setPolicy(data) {
    if (this.name === "firefox") {
      const { gecko } = (await manifest("firefox")).browser_specific_settings;
      const policy = { name: gecko.id, description: "Policy", type: "storage", data };
      return writeWithFolders(join(this.home, ".mozilla/managed-storage", `${gecko.id}.json`), policy);
    }
    // Chromium reads them from a folder of all users only, and merges what it finds there. Under one name for all runs, what a
    // run left behind that was killed is written over by the next.
    const file = "/etc/chromium/policies/managed/quillmark-tests.json";
    const madeFolder = await writeWithFolders(file, { "3rdparty": { extensions: { [registration.chromiumExtensions[0]]: data } } });
    this.#cleanup.add(async () => {
      await rm(file, { force: true });
      if (madeFolder) await run("rmdir", ["--parents", "--ignore-fail-on-non-empty", dirname(file)]);
    });
  }

  /** Where the signing program is installed. */
  get installed() {
    return join(this.home, ".local/share/quillmark");
  }

  /** The thumbprint of the one certificate that the user can choose. */
  get thumbprint() {
    return createHash("sha1").update(this.certificate.bytes).digest("hex").toUpperCase();
  }

  /** The file by which the browser knows the program. */
  get manifest() {
    const folder = { chromium: ".config/chromium/NativeMessagingHosts", firefox: ".mozilla/native-messaging-hosts" };
    return join(this.home, folder[this.name], `${registration.name}.json`);
  }

  /** Puts a scripted module in the driver's place until the test `t` ends; `script` as of FakeToken. */
  async useFakeToken(t, script) {
    const driver = join(this.installed, "QMTokenDriver.so");
    const before = new Set(await readdir(this.installed));
    await rm(driver);
    await new FakeToken(script).install(this.installed);
    t.after(async () => {
      for (const file of await readdir(this.installed)) if (!before.has(file)) await rm(join(this.installed, file));
      await rm(driver, { force: true });
      await copyFile(join(bin, "QMTokenDriver.so"), driver);
    });
  }

  /** Puts a script in the program's place until the test `t` ends. It answers each request by what it is given here. */
  async useBrokenProgram(t, answer) {
    const program = join(this.installed, "QMChromeExtHost");
    await rm(program);
    await writeFile(program, BROKEN_PROGRAM.replace("ANSWER", answer), { mode: 0o755 });
    t.after(async () => {
      await rm(program);
      await copyFile(join(bin, "QMChromeExtHost"), program);
    });
  }

  /** Runs the project's install script for this home. */
  install(...options) {
    return run(join(root, "install"), ["--from", bin, ...options], { env: { ...process.env, ...this.token.env } });
  }

  async startBrowser() {
    const env = { ...this.world.desktop.env, ...this.token.env };
    this.browser = await startBrowser(this.name, { home: this.home, extensions: this.extensions, env });
    this.user.extension = new ExtensionPages(this.name, this.browser);
  }

  /** The extension's own pages. */
  get extension() {
    return this.user.extension;
  }

  /** Ends the browser and starts it anew, with the profile that it has in Chromium, and a new one in Firefox. */
  async restartBrowser() {
    await this.browser.close();
    await this.startBrowser();
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
    await page.goto(origin + path);
    if (path !== "/index.html") await page.waitForFunction("window.ask");
    return page;
  }

  // With the last of a test's pages the signing program ends, so that the next test begins without it. A window that a page
  // has opened would be where the browser opens the next one.
  #endWith(t) {
    if (this.#begun.has(t)) return;
    this.#begun.add(t);
    t.after(async () => {
      const [, ...pages] = await this.browser.pages();
      for (const page of pages) await page.close().catch(() => {});
      await this.programGone();
    });
  }

  /** The ids of this home's signing programs that run. */
  async programs() {
    const found = [];
    for (const pid of await readdir("/proc")) {
      if (!/^\d+$/.test(pid)) continue;
      const program = await readlink(`/proc/${pid}/exe`).catch(() => "");
      if (program.startsWith(this.home) && program.includes("QMChromeExtHost")) found.push(Number(pid));
    }
    return found;
  }

  /** A picture of the whole screen, kept in build/screenshots. */
  screenshot(what) {
    return this.world.desktop.screenshot(join(screenshots, `${this.name}-${what}.png`));
  }

  /** Waits until no signing program of this home runs. */
  programGone(options) {
    return waitFor("the signing program to end", async () => (await this.programs()).length === 0, options);
  }
}

export const GST_TEXT = JSON.stringify({ gstin: "33ABCDE1234F1Z5", note: "₹ 1,25,000 – నమస్తే", lines: "a\nb" });
export const DIGEST = Buffer.alloc(32, 0x5a).toString("base64");

/** HTML of a frame that shows the usual page of another origin. */
export const framing = (origin) => `<iframe src="${origin}/"></iframe>`;

/** Clicks in the page or frame, at a place where a click does nothing. */
export async function gesture(page) {
  await ("page" in page ? page.page() : page).bringToFront();
  await page.click("#gesture");
}

/** Calls an operation of the page library in a page or frame: { value } or { code, message, detail, ckr }. */
export const askWithoutGesture = (page, operation, args = [], options = {}) =>
  page.evaluate((...given) => window.ask(...given), operation, args, options);

/** The same after a click of the user in the page: without one, a page may not have the user asked. */
export async function ask(page, ...call) {
  await gesture(page);
  return askWithoutGesture(page, ...call);
}

/** What the extension tells the page or frame of itself. */
export const statusOf = async (page) => (await askWithoutGesture(page, "status")).value;

/** Has a page of the rig's sites make a PDF document of this name and sign it: { value, hashAlgorithm } or a failure. */
export const signPdf = (page, name, thumbprint) =>
  page.evaluate((...given) => window.signPdf(...given), name, thumbprint);

/** The code of what `ask` gave; words that are no code when it gave a value. */
export const codeOf = ({ code, value }) => code ?? `no error, but ${JSON.stringify(value)?.slice(0, 80)}`;

export const bytes = (base64) => Buffer.from(base64, "base64");
