/** Answers the extension's own pages: the toolbar's popup and the settings. */

import { PIN_LIFE } from "./limits.js";

export class Panel {
  #parts;

  constructor(parts) {
    this.#parts = parts;
  }

  /** `message`: {type, ...}, with the types of the methods below. Rejects for any other. */
  async answer({ type, ...values }) {
    const answer = ANSWERS.get(type);
    if (!answer) throw new Error(`no such message: ${type}`);
    return answer(this.#parts, values);
  }
}

const ANSWERS = new Map(
  Object.entries({
    /** What both pages show. */
    state: async ({ host, service, permissions, settings, policy }) => {
      const { allowed, denied, onlyAllowed, deniesAll, pinLife, problems } = await policy.current();
      const texts = (entries) => entries.map(({ text }) => text);
      return {
        hostRuns: host.run !== undefined,
        sites: { ...service.origins(), always: await permissions.usersOrigins() },
        pinLife: await settings.pinLife(),
        policy: { allowed: texts(allowed), denied: texts(denied), onlyAllowed, deniesAll, pinLife, problems },
      };
    },

    stopHost: async ({ host }) => host.close("USER_CANCELLED", "The user has ended the signing program."),

    /** The host reads the tokens when it starts. False, and nothing is done, while a request is under way. */
    readTokensAgain: async ({ service, host }) => {
      if (service.isAtWork) return false;
      host.close();
      return true;
    },

    revoke: ({ service }, { origin }) => service.revoke(origin),

    recentSignatures: ({ signatures }) => signatures.look(),

    journal: ({ journal }) => journal.read(),

    setMinutes: async ({ user, host }, { name, minutes }) => {
      const { least, most } = PIN_LIFE[name];
      if (!Number.isInteger(minutes) || minutes < least || minutes > most) throw new Error(`${minutes} minutes cannot be set`);
      await user.set({ [name]: minutes });
      await host.keepTime();
    },
  }),
);
