// What can go wrong, by name. Each is a function of the kit's parts { workplace, watcher, authority, pin }, that brings the fault
// about and gives a function which ends it.

import { BINARY_ID, SoftToken } from "./lib/token/soft-token.mjs";
import { sleep } from "./lib/process.mjs";

export const FAULTS = {
  "wrong-pin": ({ workplace: { user }, watcher }) => {
    watcher.atPin = async (pin) => {
      watcher.atPin = null; // once, for tokens lock
      await user.enterPin(`${pin}0`);
    };
    return () => (watcher.atPin = null);
  },

  "no-token": async ({ workplace: { token } }) => {
    await token.pull();
    return () => token.plugIn();
  },

  pulled: ({ workplace: { user, token }, watcher }) => {
    let isPulled = false;
    watcher.atPin = async (pin) => {
      if (!isPulled) await token.pull();
      isPulled = true;
      await user.enterPin(pin);
    };
    return async () => {
      watcher.atPin = null;
      if (isPulled) await token.plugIn();
    };
  },

  // It is stopped before the key that ends the PIN, so that no signature can be faster.
  slow: ({ workplace: { desktop, program, user }, watcher }, { milliseconds = 5_000 }) => {
    watcher.atPin = async (pin) => {
      const dialog = await user.writePin(pin);
      await program.signal("SIGSTOP");
      await desktop.key(dialog, "Return").finally(() => sleep(milliseconds)).finally(() => program.signal("SIGCONT"));
    };
    return () => (watcher.atPin = null);
  },

  expired: async ({ workplace: { home, token }, authority, pin, orders }) => {
    await token.pull();
    const expired = await SoftToken.create(home, { pin });
    const dates = { from: "20201115000000Z", to: "20231115000000Z" };
    await expired.addPair(await authority.issue("expired", { ...orders[0], ...dates }), BINARY_ID);
    return async () => {
      await expired.pull();
      await token.plugIn();
    };
  },
};
