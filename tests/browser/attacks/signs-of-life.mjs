// What would keep the PIN longer than the user wants: a site that asks nothing but whether the host lives, a locked screen.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, sleep } from "../../lib/browser-kit.mjs";

export default function ({ name, rig, attack }) {
  attack("signs of life do not keep the PIN: the host ends after a quiet minute, where one is set", async (t) => {
    const origin = await rig.freshOrigin(t);
    await rig.allow(origin);
    const setQuietTime = (minutes) => rig.extension.evaluate(async (quietMinutes) => {
      const { local } = (globalThis.browser ?? globalThis.chrome).storage;
      await (quietMinutes ? local.set({ quietMinutes }) : local.remove("quietMinutes"));
    }, minutes);
    await setQuietTime(1);
    t.after(() => setQuietTime(null));
    const page = await rig.page(t, { origin });
    await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]));
    const [program] = await rig.program.running();
    const end = Date.now() + 75_000;
    // After the end a sign of life starts a program anew, which knows no PIN.
    while ((await rig.program.running()).includes(program)) {
      if (Date.now() > end) throw new Error("The host that knows the PIN still runs after 75 seconds of signs of life");
      await askWithoutGesture(page, "status", [{ checkHost: true }]);
      await sleep(3_000);
    }
  });

  // Firefox does not tell of a locked screen.
  if (name === "chromium") {
    attack("a locked screen ends the host and its PIN", async (t) => {
      const { page } = await rig.freshPage(t, { allowed: true });
      assert.equal((await ask(page, "status", [], { checkHost: true })).value.host, "running");
      await rig.world.desktop.run("xset", ["s", "activate"]);
      t.after(() => rig.world.desktop.run("xset", ["s", "reset"]));
      await rig.program.gone({ timeout: 10_000 });
    });
  }
}
