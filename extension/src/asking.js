/** When the user may be asked a question: after a gesture, about a page in sight, and not over and over. */

import { QuillmarkError } from "../quillmark.js";
import { GESTURE_MS, MINUTE_MS, QUESTIONS_PER_MINUTE, REFUSAL_WAITS_MS } from "./limits.js";

const STATE = "questions";

const notNow = (detail) => new QuillmarkError("NOT_NOW", { detail });

export class QuestionRules {
  #session;
  #tabs;
  #windows;

  /** `session`: storage that ends with the browser, but not with a stop of the extension; `tabs`, `windows`: the browser's. */
  constructor({ session, tabs, windows }) {
    this.#session = session;
    this.#tabs = tabs;
    this.#windows = windows;
  }

  /**
   * Throws NOT_NOW when a question about the document may not be asked. `gestureAge`: how many milliseconds ago the user
   * has pressed a key or a button in it; null for never.
   */
  async require(document, gestureAge) {
    const sinceAnswer = Date.now() - document.engagedAt;
    if (!(gestureAge !== null && gestureAge <= GESTURE_MS) && !(sinceAnswer <= GESTURE_MS)) {
      throw notNow("Ask when the user has clicked or pressed a key in this very document, within 30 seconds.");
    }
    await this.requireNow(document);
  }

  /** The same for the moment in which the question's turn has come; the gesture was before. */
  async requireNow({ origin, tabId }) {
    if (!(await this.#isInSight(tabId))) throw notNow("Ask when the page is in sight, in the tab in front.");
    const { refusals, asked } = await this.#state();
    const wait = Math.ceil(((refusals[origin]?.until ?? 0) - Date.now()) / 1000);
    if (wait > 0) throw notNow(`The user did not allow this site's last request. Ask again in ${wait} seconds.`);
    if (asked.length >= QUESTIONS_PER_MINUTE) throw notNow("The user was asked too many questions. Ask again in a minute.");
  }

  /** To be called when a question is shown. */
  async begin() {
    const state = await this.#state();
    await this.#keep({ ...state, asked: [...state.asked, Date.now()] });
  }

  /** To be called when a question has ended: with an allowance, or in any other way. */
  async end({ origin }, isAllowed) {
    const state = await this.#state();
    const { [origin]: last, ...refusals } = state.refusals;
    if (!isAllowed) {
      const times = Math.min((last?.times ?? 0) + 1, REFUSAL_WAITS_MS.length);
      refusals[origin] = { times, until: Date.now() + REFUSAL_WAITS_MS[times - 1] };
    }
    await this.#keep({ ...state, refusals });
  }

  async #isInSight(tabId) {
    try {
      const { active, windowId } = await this.#tabs.get(tabId);
      return active && (await this.#windows.get(windowId)).state !== "minimized";
    } catch {
      return false; // it was closed
    }
  }

  async #state() {
    const { refusals = {}, asked = [] } = (await this.#session.get(STATE))[STATE] ?? {};
    return { refusals, asked: asked.filter((time) => time > Date.now() - MINUTE_MS) };
  }

  #keep(state) {
    return this.#session.set({ [STATE]: state });
  }
}
