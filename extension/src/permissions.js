/** Who may ask: the user's list and the administrator's. */

import { isTrustworthy } from "./origins.js";

const USERS_LIST = "allowedOrigins";
const FIRST_ALLOWED = "firstAllowed";

export class Permissions {
  #user;
  #policy;
  #lastChange = Promise.resolve();

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

  remember(origin) {
    return this.#change(async () => {
      const times = await this.#firstTimes();
      return Object.hasOwn(times, origin) ? {} : { [FIRST_ALLOWED]: { ...times, [origin]: new Date().toISOString() } };
    });
  }

  allow(origin) {
    return this.#change(async () => ({ [USERS_LIST]: [...new Set([...(await this.usersOrigins()), origin])].sort() }));
  }

  revoke(origin) {
    return this.#change(async () => ({ [USERS_LIST]: (await this.usersOrigins()).filter((each) => each !== origin) }));
  }

  // One after another: what is read must not be written back over another change.
  #change(make) {
    const change = this.#lastChange.then(async () => this.#user.set(await make()));
    this.#lastChange = change.catch(() => {});
    return change;
  }

  async #firstTimes() {
    return (await this.#user.get(FIRST_ALLOWED))[FIRST_ALLOWED] ?? {};
  }
}
