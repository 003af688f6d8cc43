/** The question whether a site may ask, in a window of the extension's own; one window at a time. */

const WINDOW = { type: "popup", width: 520, height: 660 };
const ANSWERS = ["once", "always", "deny"];

export class Consent {
  #windows;
  #pageUrl;
  #open;

  /** `windows` is the browser's windows interface, `pageUrl` the address of the consent page. */
  constructor({ windows, pageUrl }) {
    this.#windows = windows;
    this.#pageUrl = pageUrl;
    windows.onRemoved.addListener((windowId) => windowId === this.#open?.windowId && this.#open.answer("deny"));
  }

  /**
   * Opens the window and resolves to the user's answer: "once", "always" or "deny"; closing the window denies. An abort
   * of the signal closes the window and rejects with the signal's reason.
   */
  async ask(question, signal) {
    signal.throwIfAborted();
    let abort;
    const answered = new Promise((resolve, reject) => {
      this.#open = { id: crypto.randomUUID(), question, answer: resolve };
      abort = () => reject(signal.reason);
      signal.addEventListener("abort", abort);
    });
    // An abort may come while the window opens, before anyone awaits the answer.
    answered.catch(() => {});
    try {
      const place = middleOf(await this.#windows.getLastFocused());
      const { id } = await this.#windows.create({ ...WINDOW, ...place, url: `${this.#pageUrl}#${this.#open.id}` });
      this.#open.windowId = id;
      return await answered;
    } finally {
      signal.removeEventListener("abort", abort);
      const { windowId } = this.#open;
      this.#open = undefined;
      // The user may have closed it already.
      if (windowId !== undefined) await this.#windows.remove(windowId).catch(() => {});
    }
  }

  /** Serves the consent page, which sends the id that it was opened with, takes the question, and sends the answer. */
  connect(port) {
    let asked;
    port.onMessage.addListener(({ type, id, answer }) => {
      if (!this.#open || id !== this.#open.id) return port.postMessage({ type: "gone" });
      if (type === "ready") {
        asked = this.#open;
        port.postMessage({ type: "question", question: asked.question });
      } else if (type === "answer" && ANSWERS.includes(answer)) {
        this.#open.answer(answer);
      }
    });
    port.onDisconnect.addListener(() => asked?.answer("deny"));
  }
}

// Over the window that the user looks at. A desktop without windows' places gives none.
function middleOf({ left, top, width, height }) {
  if (left === undefined) return {};
  return {
    left: Math.max(0, Math.round(left + (width - WINDOW.width) / 2)),
    top: Math.max(0, Math.round(top + (height - WINDOW.height) / 2)),
  };
}
