/** What the administrator has set, from the browser's managed storage. What cannot be understood denies. */

import { PIN_LIFE, POLICY_SETTLE_MS } from "./limits.js";
import { message } from "./messages.js";
import { isMeant, parseEntry } from "./origins.js";

const KEYS = ["allowedOrigins", "deniedOrigins", "onlyAllowedOrigins", ...Object.keys(PIN_LIFE)];

/** An administrator's settings, understood. */
export class Policy {
  allowed = [];
  denied = [];
  onlyAllowed = false;
  deniesAll = false;
  /** Those of PIN_LIFE that the administrator has set, in minutes. */
  pinLife = {};
  /** What could not be understood: {key, entry (null for the whole), why}. */
  problems = [];

  /** `set`: the managed storage's values. */
  constructor(set) {
    this.denied = this.#entries(set, "deniedOrigins", () => (this.deniesAll = true));
    this.allowed = this.#entries(set, "allowedOrigins", () => (this.onlyAllowed = true));
    const { onlyAllowedOrigins } = set;
    if (onlyAllowedOrigins !== undefined && typeof onlyAllowedOrigins !== "boolean") {
      this.#problem("onlyAllowedOrigins", null, message("policy_not_boolean"));
    }
    if (![undefined, false].includes(onlyAllowedOrigins)) this.onlyAllowed = true;
    for (const [key, { least, most }] of Object.entries(PIN_LIFE)) if (key in set) this.#minutes(key, set[key], least, most);
    for (const key of Object.keys(set)) if (!KEYS.includes(key)) this.#problem(key, null, message("policy_no_setting"));
  }

  /** The policy of a browser that could not tell it: nobody may ask. */
  static unreadable(error) {
    const policy = new Policy({});
    policy.deniesAll = true;
    policy.#problem("*", null, message("policy_unreadable", String(error?.message ?? error)));
    return policy;
  }

  /** "denied", "allowed", "ask" (where the administrator leaves it to the user). A denial counts before a permission. */
  decide(origin) {
    if (this.deniesAll || this.denied.some((entry) => isMeant(origin, entry, { anyPort: true }))) return "denied";
    if (this.allowed.some((entry) => isMeant(origin, entry, { anyPort: false }))) return "allowed";
    return this.onlyAllowed ? "denied" : "ask";
  }

  #entries(set, key, failClosed) {
    if (!(key in set)) return [];
    if (!Array.isArray(set[key])) {
      failClosed();
      this.#problem(key, null, message("policy_no_list"));
      return [];
    }
    return set[key].flatMap((text) => {
      try {
        return [{ ...parseEntry(text), text }];
      } catch (error) {
        failClosed();
        this.#problem(key, text, error.message);
        return [];
      }
    });
  }

  #minutes(key, value, least, most) {
    const isValid = Number.isInteger(value) && value >= least && value <= most;
    this.pinLife[key] = isValid ? value : least;
    if (!isValid) this.#problem(key, null, message("policy_no_minutes", least, most));
  }

  #problem(key, entry, why) {
    this.problems.push({ key, entry, why });
  }
}

/** The policy as it is now, once the browser has told it. */
export class PolicySource {
  #managed;
  #settled;

  /** `managed`: the browser's storage area; `session`: the one that ends with the browser. */
  constructor({ managed, session }) {
    this.#managed = managed;
    this.#settled = this.#settle(session);
  }

  /** Resolves to the Policy. At the first start in a browser's run, not before the browser had the time to read it. */
  async current() {
    await this.#settled;
    return this.#read();
  }

  async #read() {
    try {
      return new Policy(await this.#managed.get());
    } catch (error) {
      // This is how Firefox says that the administrator has set nothing.
      return /managed storage manifest not found/i.test(error?.message) ? new Policy({}) : Policy.unreadable(error);
    }
  }

  // Chromium answers with nothing until it has read the policies, and tells then that they have changed.
  async #settle(session) {
    const { policySettled } = await session.get("policySettled").catch(() => ({}));
    if (policySettled) return;
    const isThere = await this.#managed.get().then((set) => Object.keys(set).length > 0, () => true);
    if (!isThere) {
      await new Promise((resolve) => {
        setTimeout(resolve, POLICY_SETTLE_MS);
        this.#managed.onChanged?.addListener(resolve);
      });
    }
    await session.set({ policySettled: true }).catch(() => {});
  }
}
