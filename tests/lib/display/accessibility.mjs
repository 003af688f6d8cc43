// What makes a desktop accessible: a session bus of its own, and on it the service that leads programs and screen readers to
// the bus where they meet.

import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdir, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { runUnchecked, sleep, waitFor } from "../process.mjs";

const LAUNCHER = "/usr/libexec/at-spi-bus-launcher";

/** Starts both, for the environment `env` of a desktop. Resolves with what to add to it; all ends with `cleanup`. */
export async function startAccessibility(env, cleanup) {
  const folder = await cleanup.folder("accessibility");
  const runtime = join(folder, "run");
  await mkdir(runtime, { mode: 0o700 });
  const address = `unix:path=${join(folder, "bus")}`;
  const config = join(folder, "session.conf");
  // No folder of services: nothing of the machine's own is started through this bus.
  await writeFile(config, `<busconfig><type>session</type><listen>${address}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>`);
  // Programs look at these variables, or ask the launcher whether there is a screen reader.
  const added = { DBUS_SESSION_BUS_ADDRESS: address, XDG_RUNTIME_DIR: runtime, GNOME_ACCESSIBILITY: "1", ACCESSIBILITY_ENABLED: "1",
    NO_AT_BRIDGE: undefined, AT_SPI_BUS_ADDRESS: undefined };
  const options = { stdio: "ignore", env: { ...process.env, ...env, ...added, HOME: folder } };
  const start = (...command) => {
    const child = spawn("setpriv", ["--pdeathsig", "TERM", ...command], options);
    cleanup.addChild(child);
    return child;
  };
  const answers = (...command) => async () => (await runUnchecked(command[0], command.slice(1), options)).code === 0;

  start("dbus-daemon", `--config-file=${config}`, "--nofork", "--nopidfile", "--nosyslog");
  await waitFor("the session bus", answers("dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus", "/",
    "org.freedesktop.DBus.GetId"));
  const launcher = start(LAUNCHER, "--launch-immediately", "--a11y=1", "--screen-reader=1");
  await waitFor("the accessibility bus", answers("dbus-send", "--session", "--print-reply", "--dest=org.a11y.Bus",
    "/org/a11y/bus", "org.a11y.Bus.GetAddress"));
  // Asked to end, it ends its own bus, too.
  cleanup.add(async () => {
    if (launcher.exitCode === null && launcher.kill("SIGTERM")) await Promise.race([once(launcher, "close"), sleep(5000)]);
  });
  return added;
}
