/** Who may ask: the user's list and the administrator's. */

import { isTrustworthy } from "./origins.js";

const USERS_LIST = "allowedOrigins";
const FIRST_ALLOWED = "firstAllowed";

export class Permissions {
  #user;
  #policy;

  /** `user`: the storage area of the profile; `policy`: a PolicySource. */
  constructor({ user, policy }) {
    this.#user = user;
    this.#policy = policy;
  }

  /** "allowed", "denied", or "ask". The administrator's word counts before the user's. */
  async decide(origin) {
    if (!isTrustworthy(origin)) return "denied";
    const decision = (await this.#policy.current()).decide(origin);
    if (decision !== "ask") return decision;
    return (await this.usersOrigins()).includes(origin) ? "allowed" : "ask";
  }

  /** The origins that the user has allowed for good. */
  async usersOrigins() {
    const { [USERS_LIST]: origins } = await this.#user.get(USERS_LIST);
    return Array.isArray(origins) ? origins : [];
  }

  /** When the user has allowed the origin for the first time, in whatever way: an ISO time, or undefined. */
  async firstAllowed(origin) {
    const times = await this.#firstTimes();
    return Object.hasOwn(times, origin) ? times[origin] : undefined;
  }

  async remember(origin) {
    const times = await this.#firstTimes();
    if (!Object.hasOwn(times, origin)) await this.#user.set({ [FIRST_ALLOWED]: { ...times, [origin]: new Date().toISOString() } });
  }

  async allow(origin) {
    await this.#user.set({ [USERS_LIST]: [...new Set([...(await this.usersOrigins()), origin])].sort() });
  }

  async revoke(origin) {
    await this.#user.set({ [USERS_LIST]: (await this.usersOrigins()).filter((each) => each !== origin) });
  }

  async #firstTimes() {
    return (await this.#user.get(FIRST_ALLOWED))[FIRST_ALLOWED] ?? {};
  }
}
