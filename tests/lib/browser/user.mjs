// The user in front of the browser: answers the extension's question and the signing program's windows, by mouse and keys.

import { sleep, waitFor } from "../process.mjs";
import { PIN_TITLE, WINDOW_TITLE } from "../program/texts.mjs";
import { Hands } from "../user/hands.mjs";
import { User } from "../user/user.mjs";

/** What the browsers put behind the title of a page. */
const BROWSER_TITLE = { chromium: " - Chromium", firefox: " — Mozilla Firefox" };

/** How often Tab leads from the button that has the focus first to this one. */
const TABS = { deny: 0, always: 1, page: 2, once: 3 };

const WAITING_TITLE = "Quillmark - Allow this site?";
const DOCUMENTS_TITLE = "Quillmark - Sign this?";

const MIDDLE_OF = (wanted) => {
  const { x, y, width, height } = document.querySelector(wanted)?.getBoundingClientRect() ?? {};
  return width && { x: x + width / 2 - innerWidth / 2, y: y + height / 2 - innerHeight };
};

export class BrowserUser extends User {
  #browser;

  /** The extension's own pages (ExtensionPages), in which the user sees where an answer stands. */
  extension;

  /** The windows with questions that were seen. */
  questionsSeen = new Set();

  constructor(desktop, browser) {
    super(desktop);
    this.#browser = browser;
    this.hands = new Hands(desktop);
  }

  /** The window of the extension that asks about this origin, once its buttons take clicks. */
  async consentWindow(origin, options) {
    const id = await this.desktop.window(this.extensionTitle(`Quillmark - Allow ${origin}?`), options);
    this.questionsSeen.add(id);
    return id;
  }

  /** The extension's windows that ask about this origin or, not ready yet, about one that they do not name. */
  async questions(origin) {
    const [waiting, ready] = [WAITING_TITLE, `Quillmark - Allow ${origin}?`].map((title) => this.extensionTitle(title));
    // The title may change between two looks.
    const titles = [waiting, ready, waiting];
    const found = [];
    for (const title of titles) if (found.length === 0) found.push(...(await this.desktop.windows(title)));
    for (const id of found) this.questionsSeen.add(id);
    return found;
  }

  /** The same window as consentWindow, as soon as it is there. */
  async question(origin) {
    return waitFor(`a question about ${origin}`, async () => (await this.questions(origin))[0]);
  }

  /** Answers "once", "page", "always" or "deny" by the keyboard; the second step of "always" by the mouse. */
  async consent(origin, answer, options) {
    const id = await this.question(origin);
    await this.#inFront(id, (soon) => this.consentWindow(origin, soon));
    for (let i = 0; i < TABS[answer]; i++) await this.desktop.key(id, "Tab");
    // A key that does not answer has the window wait once more.
    await sleep(200);
    await this.consentWindow(origin, options);
    await this.desktop.key(id, "Return");
    if (answer === "always") await this.#clickAnswer(id, origin, "#confirm-always");
    await this.gone(id);
  }

  // Another window may have the keyboard, or take it while this one waits, as the host's does when its list is there.
  async #inFront(id, whenReady) {
    await waitFor("the question to take an answer", async () => {
      await this.desktop.focus(id);
      return whenReady({ timeout: 4_000 }).catch(() => undefined);
    });
  }

  // The mouse that comes has the window wait, as does what it shows anew.
  async #clickAnswer(id, origin, selector) {
    const { x, y } = await waitFor(selector, () => this.placeOf(selector, id));
    await this.hands.point({ id, x, y });
    await sleep(300);
    await this.consentWindow(origin);
    await this.hands.click();
  }

  /** The middle of what the selector names in the consent page, whose window is `id`: { id, x, y }; undefined when not there. */
  async placeOf(selector, id) {
    return this.#onScreen(await this.extension.consent(MIDDLE_OF, selector), id);
  }

  /** The same in the window that shows documents. */
  async placeOfDocuments(selector, id) {
    return this.#onScreen(await this.extension.documents(MIDDLE_OF, selector), id);
  }

  async #onScreen(place, id) {
    if (!place) return undefined;
    // The browser's own bars are above the page, and nothing is below it.
    const { width, height } = await this.desktop.geometry(id);
    return { id, x: width / 2 + place.x, y: height + place.y };
  }

  /** The window of the extension that shows documents of this origin, once its buttons take clicks. */
  async documentsWindow(origin, options) {
    const id = await this.desktop.window(this.extensionTitle(`Quillmark - Sign for ${origin}?`), options);
    this.questionsSeen.add(id);
    return id;
  }

  /** The same window as soon as it is there. */
  async documentsSoon(origin) {
    const titles = [DOCUMENTS_TITLE, `Quillmark - Sign for ${origin}?`].map((title) => this.extensionTitle(title));
    const id = await waitFor("the documents", async () => (await Promise.all(titles.map((each) => this.desktop.windows(each)))).flat()[0]);
    this.questionsSeen.add(id);
    return id;
  }

  /** Answers "sign", "deny" or "stop" in the window that shows documents, by the keyboard. */
  async answerDocuments(origin, answer, options) {
    const id = await this.documentsSoon(origin);
    await this.#inFront(id, (soon) => this.documentsWindow(origin, soon));
    const hasFocus = () => this.extension.documents((wanted) => document.activeElement.id === wanted, answer);
    for (let i = 0; i < 20 && !(await hasFocus()); i++) await this.desktop.key(id, "Tab");
    await sleep(200);
    await this.documentsWindow(origin, options);
    await this.desktop.key(id, "Return");
    return id;
  }

  /** The title of a window of the extension's own. */
  extensionTitle(title) {
    return this.#browser === "firefox" ? `Extension: (Quillmark) - ${title} — Mozilla Firefox` : title;
  }

  /** The title of the browser's window while it shows the page of this title. */
  browserTitle(title) {
    return `${title}${BROWSER_TITLE[this.#browser]}`;
  }

  browserWindow(title) {
    return this.desktop.window(this.browserTitle(title));
  }

  bringToFront(id) {
    return this.desktop.focus(id);
  }

  /** Opens an address in a new tab of the window, and waits for the page's title. */
  async openTab(window, address, title) {
    await this.press(window, "ctrl+t");
    await sleep(500); // the new tab's own page takes the keyboard once more
    await this.press(window, "ctrl+l");
    await this.desktop.type(window, address);
    await this.press(window, "Return");
    await this.browserWindow(title);
  }

  /** Presses keys, by their X names, in a window. */
  async press(window, ...keys) {
    for (const key of keys) await this.desktop.key(window, key);
  }

  certificateWindow() {
    return this.desktop.window(WINDOW_TITLE);
  }

  /** Chooses the certificate that is selected at first, in as many windows as come; gives what the request comes to. */
  async choose(request) {
    await this.#clickUntilAnswered(request, this.okButton);
    return request;
  }

  async cancel(request) {
    await this.#clickUntilAnswered(request, this.cancelButton);
    return request;
  }

  /** Chooses until the PIN is asked for, and types that. */
  async chooseAndLogIn(request, pin) {
    await this.chooseUntilPin(request);
    await this.typePin(pin);
    return request;
  }

  chooseUntilPin(request) {
    return this.#clickUntilAnswered(request, this.okButton);
  }

  /** Until the window is gone: what comes next must not take it for a new question. */
  async typePin(pin = "1234") {
    const id = await this.pinWindow();
    await this.enterPin(pin);
    await this.gone(id);
  }

  /** Whether the signing program shows any window. */
  async seesAWindow() {
    return (await Promise.all([WINDOW_TITLE, PIN_TITLE].map((title) => this.desktop.windows(title)))).flat().length > 0;
  }

  // Until the request is answered or the PIN is asked for. A click that comes too early, while the window still loads or is
  // placed, does nothing; hence again.
  async #clickUntilAnswered(request, button) {
    let answered = false;
    const end = () => (answered = true);
    request.then(end, end);
    await waitFor("the request to be answered", async () => {
      if (answered || (await this.desktop.windows(PIN_TITLE)).length > 0) return true;
      const [id] = await this.desktop.windows(WINDOW_TITLE);
      if (id) await this.desktop.click(id, ...button).catch(() => {}); // it may close under the mouse
      return false;
    }, { interval: 300 });
  }

  /** Waits until this window is closed. */
  async gone(id) {
    await waitFor("the window to close", async () => !(await this.isVisible(id)));
  }

  async isVisible(id) {
    return (await this.desktop.property(id, "WM_STATE").catch(() => "")).includes("Normal");
  }
}
