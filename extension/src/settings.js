/** The settings that are not about sites: how long the host may remember the PIN. The administrator's word counts first. */

import { PIN_LIFE } from "./limits.js";

export class Settings {
  #user;
  #policy;

  /** `user`: the storage area of the profile; `policy`: a PolicySource. */
  constructor({ user, policy }) {
    this.#user = user;
    this.#policy = policy;
  }

  /** {quietMinutes, longestMinutes} */
  async pinLife() {
    const [set, policy] = await Promise.all([this.#user.get(Object.keys(PIN_LIFE)).catch(() => ({})), this.#policy.current()]);
    const minutes = ([key, { standard, least, most }]) => {
      const isValid = Number.isInteger(set[key]) && set[key] >= least && set[key] <= most;
      return [key, policy.pinLife[key] ?? (isValid ? set[key] : standard)];
    };
    return Object.fromEntries(Object.entries(PIN_LIFE).map(minutes));
  }
}
