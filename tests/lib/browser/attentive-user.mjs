// A user who answers each window that comes, by the same mouse and keys, until told otherwise.

import { sleep, waitFor } from "../process.mjs";
import { PIN_TITLE, WINDOW_TITLE } from "../program/texts.mjs";

/** How often the user looks at the screen, in milliseconds. */
const LOOK_MS = 100;

/** How long a window may take until it takes an answer. One that goes meanwhile holds up those behind it as long. */
const PATIENCE = { timeout: 10_000 };

/** The same where nothing was done yet, and it can be tried anew. */
const SOON = { timeout: 2_000 };

/** The title of the extension's windows until they take an answer. */
const WAITING = /Quillmark - (Allow this site|Sign this)\?/;

/** The windows that want something, the foremost first, by their titles. */
const WINDOWS = [
  ["pin", `^${PIN_TITLE}$`],
  ["certificate", `^${WINDOW_TITLE}$`],
  ["consent", "Quillmark - Allow (?<origin>[^ ]+)\\?"],
  ["documents", "Quillmark - Sign for (?<origin>[^ ]+)\\?"],
  ["waiting", WAITING],
].map(([window, pattern]) => [window, new RegExp(pattern)]);

/** The operation that a question of the extension is about; called in its window. */
const OPERATION = async () => {
  const files = ["/quillmark.js", "/src/operations.js", "/src/messages.js"];
  const [library, { operationOf }, { message }] = await Promise.all(files.map((file) => import(file)));
  const isAsked = (name) => {
    try {
      return message(operationOf(name).asks) === document.getElementById("asks").textContent;
    } catch {
      return false; // it is no operation
    }
  };
  return Object.keys(library).find(isAsked);
};

export class AttentiveUser {
  #user;
  #onExtension;
  #answers = null;
  #done = new Set();
  #isGone = false;
  #end;

  /** The windows that were answered: { window }, and of the extension's { window, origin, operation }. */
  asked = [];

  /** Called with the PIN in place of typing it. */
  atPin = null;

  /** `user`: a BrowserUser; `onExtension()` is awaited before a window of the extension is answered. */
  constructor(user, { onExtension }) {
    this.#user = user;
    this.#onExtension = onExtension;
  }

  /** Answers from now on { consent, documents, certificate, pin }: as of BrowserUser, and the row of a certificate or "cancel". */
  answer(answers) {
    this.#answers = answers;
    this.#end ??= this.#watch();
  }

  /** Goes away, when the window in hand is answered. */
  async leave() {
    this.#isGone = true;
    await this.#end;
  }

  async #watch() {
    while (!this.#isGone) {
      // Any window may go while it is being answered, with its page, its request or the host.
      await this.#look().catch(() => {});
      await sleep(LOOK_MS);
    }
  }

  async #look() {
    const seen = await this.#user.desktop.titled("Quillmark");
    for (const id of this.#done) if (!seen.some((each) => each.id === id)) this.#done.delete(id);
    for (const [window, pattern] of WINDOWS) {
      const found = seen.find(({ id, title }) => pattern.test(title) && !this.#done.has(id));
      if (found) return this.#act(window, found.id, pattern.exec(found.title).groups?.origin);
    }
  }

  async #act(window, id, origin) {
    if (window === "waiting") return this.#bringForward(id);
    const entry = { window };
    if (origin) {
      await this.#onExtension();
      Object.assign(entry, { origin, operation: await this.#user.extension[window](OPERATION) });
    }
    // Before the answer: a page that has its own by then finds it here.
    this.asked.push(entry);
    try {
      await this.#acts[window](this.#answers[window], id, origin);
    } catch (error) {
      this.asked.splice(this.asked.indexOf(entry), 1); // it is tried anew, or has gone
      throw error;
    }
  }

  async #bringForward(id) {
    await this.#user.desktop.focus(id);
    const waits = ({ id: each, title }) => each === id && WAITING.test(title);
    await waitFor("the question", async () => !(await this.#user.desktop.titled("Quillmark")).some(waits), { timeout: 4_000 });
  }

  #acts = {
    pin: async (answer, id) => {
      if (answer === "cancel") await this.#user.cancelPin(PATIENCE);
      else if (this.atPin) await this.atPin(answer);
      else await this.#user.enterPin(answer, PATIENCE);
      await this.#user.gone(id);
    },
    certificate: async (answer, id) => {
      if (answer === "cancel") await this.#user.desktop.click(id, ...this.#user.cancelButton);
      else await this.#user.chooseRow(answer, SOON);
      // A click that went astray is made once more.
      const isNext = async () => !(await this.#user.isVisible(id)) || (await this.#user.desktop.windows(PIN_TITLE)).length > 0;
      await waitFor("the choice to be taken", isNext, SOON);
    },
    consent: async (answer, id, origin) => {
      // From the first button on, also after a try that came to nothing.
      await this.#user.extension.consent(() => document.getElementById("deny").focus());
      await this.#user.consent(origin, answer, PATIENCE);
    },
    documents: async (answer, id, origin) => {
      await this.#user.answerDocuments(origin, answer, PATIENCE);
      this.#done.add(id); // it stays until all is signed
    },
  };
}
