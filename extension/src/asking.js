/** When the user may be asked a question: after a gesture, about a page in sight, and not over and over. */

import { QuillmarkError } from "../quillmark.js";
import { GESTURE_MS, MINUTE_MS, QUESTIONS_PER_MINUTE, REFUSAL_WAITS_MS, REFUSALS_KEPT_MS } from "./limits.js";

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
   * Throws NOT_NOW when a question about the document may not be asked now. `gestureAt`: when the user has last pressed a key
   * or a button in it.
   */
  async require({ origin, tabId, engagedAt }, gestureAt) {
    if (!(Date.now() - Math.max(gestureAt, engagedAt) <= GESTURE_MS)) {
      throw notNow("Ask when the user has clicked or pressed a key in this very document, within 30 seconds.");
    }
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

  /**
   * To be called when a question has ended: "allowed"; "refused", also by closing it or letting its time run out; or
   * "withdrawn" by the page, after which it waits as after a first refusal.
   */
  async end({ origin }, outcome) {
    const state = await this.#state();
    const { [origin]: last, ...refusals } = state.refusals;
    const before = last?.times ?? 0;
    if (outcome !== "allowed") {
      const times = outcome === "refused" ? Math.min(before + 1, REFUSAL_WAITS_MS.length) : before;
      const wait = REFUSAL_WAITS_MS[outcome === "refused" ? times - 1 : 0];
      refusals[origin] = { times, until: Date.now() + wait };
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
    const recent = Object.entries(refusals).filter(([, { until }]) => until > Date.now() - REFUSALS_KEPT_MS);
    return { refusals: Object.fromEntries(recent), asked: asked.filter((time) => time > Date.now() - MINUTE_MS) };
  }

  #keep(state) {
    return this.#session.set({ [STATE]: state });
  }
}
