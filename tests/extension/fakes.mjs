// A browser in a few lines: pages with the page library, the extension's script in them, its background, and a signing
// program that answers as a test says. Nothing of it needs a browser.

import assert from "node:assert/strict";
import { webcrypto } from "node:crypto";
import { readFile } from "node:fs/promises";
import { afterEach } from "node:test";
import { setImmediate as turn } from "node:timers/promises";
import vm from "node:vm";

import { QuestionRules } from "../../extension/src/asking.js";
import { Consent } from "../../extension/src/consent.js";
import { Host } from "../../extension/src/host.js";
import { Journal } from "../../extension/src/journal.js";
import { Permissions } from "../../extension/src/permissions.js";
import { PolicySource } from "../../extension/src/policy.js";
import { Service } from "../../extension/src/service.js";
import { Settings } from "../../extension/src/settings.js";
import { Signatures } from "../../extension/src/signatures.js";
import "./catalogue.mjs";

globalThis.crypto ??= webcrypto;

const extension = new URL("../../extension/", import.meta.url);

export const SITE = "https://site.example";
export const ALLOWED = { user: { allowedOrigins: [SITE] } };
export const DIGEST = Buffer.alloc(32, 7).toString("base64");

/** The browser of the test that runs. It goes with the test. */
export let browser;
afterEach(() => browser?.close());

/** Starts the test's browser; `options` as of FakeBrowser. */
export function start(options) {
  browser = new FakeBrowser(options);
}

/** Starts the test's browser with a page; what follows `options` is as of FakeBrowser.page. */
export function visit(options, ...page) {
  start(options);
  return browser.page(...page);
}

/** Has the page ask for a signature. What is given takes that back, and waits until the request has ended. */
export async function withdrawable(page) {
  const controller = new AbortController();
  const ended = assert.rejects(page.signAuthToken("token", { signal: controller.signal }), { code: "ABORTED" });
  await settle();
  return () => (controller.abort(), ended);
}

/** Speaks to the extension in a page without the library, as `source`: { send(message), heard, close() }. */
export function rawChannel(page, source = page.window) {
  const { port1, port2 } = new MessageChannel();
  const heard = [];
  port1.onmessage = ({ data }) => heard.push(data);
  page.window.deliver(source, { quillmark: "connect" }, [port2]);
  return { send: (message) => port1.postMessage(message), heard, close: () => port1.close() };
}

class Event {
  #listeners = [];

  addListener(listener) {
    this.#listeners.push(listener);
  }

  emit(...args) {
    for (const listener of this.#listeners) listener(...args);
  }
}

/** Both ends of a port of the browser. Messages arrive later, as copies; a disconnect is told to the other end only. */
export function portPair(name, sender) {
  const end = () => ({ name, onMessage: new Event(), onDisconnect: new Event() });
  const [one, other] = [end(), end()];
  other.sender = sender;
  let open = true;
  for (const [from, to] of [[one, other], [other, one]]) {
    from.postMessage = (message) => {
      if (!open) throw new Error("Attempting to use a disconnected port object");
      const copy = structuredClone(message);
      setImmediate(() => open && to.onMessage.emit(copy, to));
    };
    from.disconnect = () => {
      if (!open) return;
      open = false;
      setImmediate(() => to.onDisconnect.emit(to));
    };
  }
  return [one, other];
}

/** Lets everything that was posted arrive, and what follows from it. */
export async function settle(turns = 100) {
  for (let i = 0; i < turns; i++) await turn();
}

/** Lets things happen until the condition holds, for as long as it takes on a busy machine. */
export async function until(condition) {
  for (let i = 0; !condition(); i++) {
    if (i > 100_000) throw new Error(`in vain: ${condition}`);
    await turn();
  }
}

/** Stops the clock of setTimeout and Date until the test `t` ends; `tick(milliseconds)` moves it on. */
export function stopClock(t) {
  const real = { setTimeout, clearTimeout };
  const realNow = Date.now;
  const timers = new Map();
  let now = 0;
  let lastId = 0;
  const start = Date.now();
  Date.now = () => start + now;
  globalThis.setTimeout = (callback, delay) => (timers.set(++lastId, { callback, at: now + delay }), lastId);
  globalThis.clearTimeout = (id) => timers.delete(id) || real.clearTimeout(id);
  t.after(() => {
    Object.assign(globalThis, real);
    Date.now = realNow;
  });
  return {
    /** The computer sleeps: time goes on, and no timer notices. */
    sleep(milliseconds) {
      now += milliseconds;
      for (const timer of timers.values()) timer.at += milliseconds;
    },
    tick(milliseconds) {
      now += milliseconds;
      for (const [id, { callback, at }] of timers) if (at <= now && timers.delete(id)) callback();
    },
  };
}

/** A storage area that begins with `initial` and holds `values`. */
export function storage(initial = {}) {
  const values = structuredClone(initial);
  const some = (names) => Object.fromEntries([names].flat().filter((name) => name in values).map((name) => [name, values[name]]));
  return {
    values,
    onChanged: new Event(),
    get: async (names) => structuredClone(names === undefined ? values : some(names)),
    set: async (changes) => void Object.assign(values, structuredClone(changes)),
    remove: async (name) => void delete values[name],
  };
}

const BROWSER_WINDOW = "the browser's own";

/** The browser's windows as far as the consent needs them. */
class FakeWindows {
  onRemoved = new Event();
  open = new Map();
  #lastId = 0;

  async getLastFocused() {
    return { left: 0, top: 0, width: 1000, height: 700 };
  }

  async get(id) {
    // The browser's own window has no number here.
    if (id !== undefined && id !== BROWSER_WINDOW && !this.open.has(id)) throw new Error(`no window ${id}`);
    return { state: "normal" };
  }

  async create({ url }) {
    await turn();
    const id = ++this.#lastId;
    this.open.set(id, url);
    return { id };
  }

  async remove(id) {
    if (!this.open.delete(id)) throw new Error(`no window ${id}`);
    this.onRemoved.emit(id);
  }
}

/** A signing program. `answer(request)` gives { ok, text }, nothing for silence, or a promise of these. */
export class FakeProgram {
  starts = 0;
  requests = [];
  exitText = null;
  startError = null;
  #port;

  constructor(answer) {
    this.answer = answer;
  }

  connectNative = () => {
    const [extensionEnd, programEnd] = portPair("native");
    this.starts++;
    this.running = true;
    this.#port = programEnd;
    programEnd.onDisconnect.addListener(() => {
      if (this.#port === programEnd) this.running = false;
    });
    programEnd.onMessage.addListener(async (request) => {
      this.requests.push(request);
      const answer = await this.answer(request);
      if (answer && this.running) this.reply(request.nonce, answer);
    });
    if (this.startError) this.exit(this.startError);
    return extensionEnd;
  };

  lastError = () => this.exitText;

  reply(nonce, { ok = true, text }) {
    this.send({ status_cd: ok ? 1 : 0, result: ok ? text : `QMHost Error: ${text}`, nonce });
  }

  send(message) {
    this.#port.postMessage(message);
  }

  exit(text) {
    this.exitText = text;
    this.running = false;
    this.#port.disconnect();
  }
}

export const RECORD = {
  SelCertSubject: "C=IN, CN=Asha Rao", CertThumbPrint: "A".repeat(40), eMail: "asha@example.org",
  ValidFrom: "2022-11-15T00:00:00Z", ExpDate: "Sat, 15 Nov 2042 00:00:00 GMT", PublicKey: "AAAA", Cert: "BBBB",
  ChainCert: false, CKA_ID: "0102",
};

/** The answers of a program whose user chooses the one certificate and types the right PIN. */
export function willing(request) {
  switch (request.action) {
    case "GetSelCertFromToken": return { text: JSON.stringify(RECORD) };
    case undefined: return { ok: false, text: `echo: ${request.text}` };
    default: return { text: btoa(`signed by ${request.action}`) };
  }
}

/** The extension's background with its surroundings, and pages that use it. */
class FakeBrowser {
  windows = new FakeWindows();
  questions = [];
  #pages = [];
  #lastDocument = 0;

  /** `answers`: what the user answers in consent windows, one after another; none leaves the window open. */
  constructor({ program = new FakeProgram(willing), user = {}, managed = {}, answers = [] } = {}) {
    this.program = program;
    this.user = storage(user);
    this.session = storage({ policySettled: true });
    this.managed = storage(managed);
    this.answers = answers;
    this.badge = 0;
    this.tabs = { get: async () => ({ active: this.isInSight, windowId: BROWSER_WINDOW }) };
    this.isInSight = true;
    this.consent = new Consent({ windows: this.windows, pageUrl: "extension:consent", documentsUrl: "extension:documents" });
    const policy = new PolicySource({ managed: this.managed, session: this.session });
    const settings = new Settings({ user: this.user, policy });
    this.pinLife = () => settings.pinLife();
    this.host = new Host({ connectNative: program.connectNative, lastError: program.lastError, pinLife: this.pinLife });
    this.journal = new Journal(this.user);
    this.signatures = new Signatures({ journal: this.journal, session: this.session, showCount: (count) => (this.badge = count) });
    this.permissions = new Permissions({ user: this.user, policy });
    this.rules = new QuestionRules({ session: this.session, tabs: this.tabs, windows: this.windows });
    this.service = new Service({
      permissions: this.permissions,
      rules: this.rules,
      consent: this.consent,
      host: this.host,
      signatures: this.signatures,
      surroundings: async () => "https://around.example",
      version: "9.9.9",
    });
    const create = this.windows.create.bind(this.windows);
    this.windows.create = async (options) => {
      const created = await create(options);
      setImmediate(() => this.#answerConsent(options.url));
      return created;
    };
  }

  #answerConsent(url) {
    if (!url.startsWith("extension:consent")) return;
    const id = url.split("#")[1];
    const [page, background] = portPair("consent", {});
    this.consent.connect(background);
    let question;
    let text = "";
    page.onMessage.addListener((message) => {
      if (message.type === "gone") return;
      if (message.type === "question") question = message.question;
      if (message.type === "text") text += message.piece;
      if (!question || text.length < question.characters) return;
      this.questions.push({ ...question, ...(text && { text }) });
      page.postMessage({ type: "shown", id });
      if (question.kind === "question" && this.answers.length > 0) page.postMessage({ type: "answer", id, answer: this.answers.shift() });
    });
    page.postMessage({ type: "ready", id });
  }

  /**
   * A page (or frame) of this origin, in which the user has clicked: gives the page library as loaded in it, and `click()` for
   * another click.
   */
  async page(origin = "https://site.example", { frameId = 0, incognito = false, extension: present = true, clicked = true } = {}) {
    const page = { ports: [], sender: { origin, frameId, documentId: `doc-${++this.#lastDocument}`, tab: { id: 1, incognito } } };
    const window = new FakeWindow(origin);
    if (present) await this.#runBridge(window, page);
    if (clicked) window.press("click");
    const library = await loadLibrary(window);
    this.#pages.push({ window, page });
    const stopExtension = () => page.ports.forEach((port) => port.disconnect());
    const close = async () => {
      page.ports.forEach((port) => port.disconnect());
      await settle();
    };
    return { ...library, window, close, stopExtension, click: () => window.press("click") };
  }

  async #runBridge(window, page) {
    const connect = ({ name }) => {
      if (this.extensionIsGone) throw new Error("Extension context invalidated.");
      const [pageEnd, background] = portPair(name, page.sender);
      // Either end's disconnect has to be told to both, as a document's end and the background's stop are.
      page.ports.push({ disconnect: () => (pageEnd.disconnect(), pageEnd.onDisconnect.emit(pageEnd)) });
      this.service.connect(background);
      return pageEnd;
    };
    const runtime = { connect, onMessage: new Event() };
    const context = vm.createContext({
      window, chrome: { runtime }, setInterval: () => {}, clearInterval, performance, TextEncoder, location: { origin: window.origin },
      document: {}, MutationObserver: class { observe() {} },
    });
    vm.runInContext(await readFile(new URL("src/bridge.js", extension), "utf8"), context);
  }

  /** Ends what would keep the test's process alive. */
  close() {
    for (const { window, page } of this.#pages) {
      window.close();
      page.ports.forEach((port) => port.disconnect());
    }
    this.host.close();
  }
}

/** A window as far as the page library and the bridge use it. */
class FakeWindow extends EventTarget {
  #ports = [];
  #listeners = [];

  constructor(origin) {
    super();
    this.origin = origin;
    this.setTimeout = setTimeout;
    this.top = this;
  }

  addEventListener(type, listener, options) {
    this.#listeners.push({ type, listener });
    super.addEventListener(type, listener, options);
  }

  /** What the user does in the window: no script can dispatch a trusted event. */
  press(type, { key, isTrusted = true } = {}) {
    for (const each of this.#listeners) if (each.type === type) each.listener({ type, key, isTrusted });
  }

  postMessage(data, target, ports = []) {
    if (target !== "/") throw new Error(`posted to ${target}`);
    this.deliver(this, data, ports);
  }

  deliver(source, data, ports) {
    this.#ports.push(...ports);
    const event = Object.assign(new globalThis.Event("message"), { source, data: structuredClone(data), ports });
    setImmediate(() => this.dispatchEvent(event));
  }

  close() {
    for (const port of this.#ports) port.close();
  }
}

let loaded = 0;

// Each page has a library of its own: the module is loaded anew, with the page's window as `window`. Named, for stack
// traces would hold all of it otherwise.
async function loadLibrary(window) {
  const source = await readFile(new URL("quillmark.js", extension), "utf8");
  const key = `__page${++loaded}`;
  globalThis[key] = window;
  const module = `const window = globalThis[${JSON.stringify(key)}];\n${source}\n//# sourceURL=${key}/quillmark.js`;
  return import(`data:text/javascript,${encodeURIComponent(module)}#${key}`);
}
