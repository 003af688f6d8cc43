/**
 * The extension's own windows: the question whether a site may ask, the text that an allowed site has signed, and the documents
 * that are shown and signed.
 */

import { QuillmarkError } from "../quillmark.js";
import { TEXT_PIECE_CHARACTERS } from "./limits.js";
import { plain } from "./plain-error.js";

const SIZE = { width: 600, height: 700 };
const DOCUMENTS_SIZE = { width: 900, height: 900 };
const ANSWERS = ["once", "page", "always", "deny", "sign", "none"];

export class Consent {
  #windows;
  #pageUrl;
  #documentsUrl;
  #open = new Map();

  /**
   * `windows` is the browser's windows interface, `pageUrl` the address of the consent page, `documentsUrl` that of the page for
   * documents.
   */
  constructor({ windows, pageUrl, documentsUrl }) {
    this.#windows = windows;
    this.#pageUrl = pageUrl;
    this.#documentsUrl = documentsUrl;
    windows.onRemoved.addListener((windowId) => {
      for (const each of this.#open.values()) if (each.windowId === windowId) each.gone();
    });
  }

  /**
   * Asks and resolves to the user's answer: "once", "page", "always" or "deny"; closing the window denies. An abort of the
   * signal closes the window and rejects with the signal's reason.
   */
  async ask(question, signal) {
    const window = await this.#show({ ...question, kind: "question" }, signal, middleOf);
    try {
      const answer = await window.answered;
      return answer === "closed" ? "deny" : answer;
    } finally {
      await window.close();
    }
  }

  /**
   * Does the work while a window shows what is signed. The work begins when the user can see it. `onStop` is called when
   * the user wants nothing to be signed. Closing the window once it was seen changes nothing.
   */
  async during(question, signal, onStop, work) {
    const window = await this.#show({ ...question, kind: "statement" }, signal, () => ({ left: 0, top: 0 }));
    try {
      if ((await Promise.race([window.shown, window.answered])) !== "shown") return void onStop();
      window.answered.then((answer) => answer === "deny" && onStop(), () => {});
      return await work();
    } finally {
      await window.close();
    }
  }

  /**
   * Opens the window that shows documents: {answered, finished, close()}. `answered` resolves to "sign", "deny", "closed", or "none"
   * when none of them can be signed; `finished` resolves when the window has done its work, and rejects when it is closed before.
   * `calls` has a function for each thing that the window asks for.
   */
  openDocuments(question, signal, calls) {
    return this.#show({ ...question, kind: "documents" }, signal, (last) => middleOf(last, DOCUMENTS_SIZE), calls);
  }

  async #show(question, signal, placeOf, calls) {
    signal.throwIfAborted();
    const entry = { question, calls };
    entry.shown = new Promise((resolve) => (entry.show = () => resolve("shown")));
    entry.answered = new Promise((resolve, reject) => {
      entry.answer = resolve;
      entry.abort = () => reject(signal.reason);
      signal.addEventListener("abort", entry.abort);
    });
    entry.finished = new Promise((resolve, reject) => {
      entry.finish = resolve;
      entry.gone = () => {
        entry.answer("closed");
        reject(new QuillmarkError("USER_CANCELLED"));
      };
      signal.addEventListener("abort", () => reject(signal.reason));
    });
    // An abort may come while the window opens, before anyone awaits the answer.
    for (const each of [entry.answered, entry.finished]) each.catch(() => {});
    const id = crypto.randomUUID();
    this.#open.set(id, entry);
    const url = calls ? this.#documentsUrl : this.#pageUrl;
    const opening = this.#openWindow(`${url}#${id}`, placeOf).then((windowId) => (entry.windowId = windowId));
    entry.close = async () => {
      signal.removeEventListener("abort", entry.abort);
      this.#open.delete(id);
      // The user may have closed it already, and it may be about to open.
      const closing = opening.then((windowId) => this.#windows.remove(windowId)).catch(() => {});
      if (entry.windowId !== undefined) await closing;
    };
    try {
      await Promise.race([opening, entry.answered]);
      // It may have been closed before anybody knew its number.
      if (entry.windowId !== undefined) await this.#windows.get(entry.windowId).catch(() => entry.gone());
    } catch (error) {
      await entry.close();
      throw error;
    }
    return entry;
  }

  async #openWindow(url, placeOf) {
    const place = placeOf(await this.#windows.getLastFocused());
    return (await this.#windows.create({ type: "popup", ...SIZE, ...place, url })).id;
  }

  /** Serves the consent page, which sends the id that it was opened with, takes the question, and sends the answer. */
  connect(port) {
    let served;
    port.onMessage.addListener(({ type, id, answer, call }) => {
      const entry = this.#open.get(id);
      if (!entry) return port.postMessage({ type: "gone" });
      if (type === "ready") {
        served = entry;
        sendQuestion(port, entry.question);
      } else if (type === "shown") {
        entry.show();
      } else if (type === "answer" && ANSWERS.includes(answer)) {
        entry.answer(answer);
      } else if (type === "call") {
        void serveCall(port, entry.calls, call);
      } else if (type === "finished") {
        entry.finish();
      }
    });
    port.onDisconnect.addListener(() => served?.gone());
  }
}

function sendQuestion(port, { text = "", ...question }) {
  port.postMessage({ type: "question", question: { ...question, characters: text.length } });
  for (let at = 0; at < text.length; at += TEXT_PIECE_CHARACTERS) {
    port.postMessage({ type: "text", piece: text.slice(at, at + TEXT_PIECE_CHARACTERS) });
  }
}

async function serveCall(port, calls, { number, name, values }) {
  let answer;
  try {
    answer = { value: await calls[name](values) };
  } catch (error) {
    answer = { error: plain(error) };
  }
  try {
    port.postMessage({ type: "return", number, ...answer });
  } catch {
    // The window was closed.
  }
}

// Over the window that the user looks at. A desktop without windows' places gives none.
function middleOf({ left, top, width, height }, size = SIZE) {
  if (left === undefined) return size;
  return {
    ...size,
    left: Math.max(0, Math.round(left + (width - size.width) / 2)),
    top: Math.max(0, Math.round(top + (height - size.height) / 2)),
  };
}
