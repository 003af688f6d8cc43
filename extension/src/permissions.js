/** Who may ask: the user's list and the administrator's. */

import { isListed, isTrustworthy } from "./origins.js";

const USERS_LIST = "allowedOrigins";

export class Permissions {
  #user;
  #managed;

  /** Both are storage areas of the browser: `user` the profile's own, `managed` the administrator's, read-only. */
  constructor({ user, managed }) {
    this.#user = user;
    this.#managed = managed;
  }

  /** "allowed", "denied", or "ask". The administrator's word counts before the user's, and a denial before a permission. */
  async decide(origin) {
    if (!isTrustworthy(origin)) return "denied";
    const policy = await this.policy();
    if (isListed(origin, policy.deniedOrigins)) return "denied";
    if (isListed(origin, policy.allowedOrigins)) return "allowed";
    if (policy.onlyAllowedOrigins) return "denied";
    return (await this.usersOrigins()).includes(origin) ? "allowed" : "ask";
  }

  /** The origins that the user has allowed for good. */
  async usersOrigins() {
    const { [USERS_LIST]: origins } = await this.#user.get(USERS_LIST);
    return Array.isArray(origins) ? origins : [];
  }

  async allow(origin) {
    await this.#user.set({ [USERS_LIST]: [...new Set([...(await this.usersOrigins()), origin])].sort() });
  }

  async revoke(origin) {
    await this.#user.set({ [USERS_LIST]: (await this.usersOrigins()).filter((each) => each !== origin) });
  }

  /** What the administrator has set, in full; empty lists where nothing is set. */
  async policy() {
    // Firefox rejects when there is no managed storage.
    const set = await this.#managed.get().catch(() => ({}));
    const list = (name) => (Array.isArray(set[name]) ? set[name].filter((each) => typeof each === "string") : []);
    return {
      allowedOrigins: list("allowedOrigins"),
      deniedOrigins: list("deniedOrigins"),
      onlyAllowedOrigins: set.onlyAllowedOrigins === true,
    };
  }
}
