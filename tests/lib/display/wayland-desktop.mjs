// A Wayland desktop without a screen: sway, with the keys and the eyes of a user on it.

import { spawn } from "node:child_process";
import { chown, readdir, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { AS_NOBODY, NOBODY, run, runUnchecked, waitFor } from "../process.mjs";

const SIZE = { width: 1024, height: 768 }; // in the units of the windows

export class WaylandDesktop {
  /** Starts the compositor with one output of that scale. It ends with `cleanup`. */
  static async start(cleanup, scale) {
    const desktop = new WaylandDesktop();
    const folder = await cleanup.folder("sway");
    const config = join(folder, "config");
    await writeFile(config, `xwayland disable
output * resolution ${SIZE.width * scale}x${SIZE.height * scale} scale ${scale}
for_window [app_id=".*"] floating enable
`);
    desktop.env = { XDG_RUNTIME_DIR: folder, SWAYSOCK: join(folder, "sway"), GDK_BACKEND: "wayland", DISPLAY: undefined,
      GTK_THEME: "Adwaita", NO_AT_BRIDGE: "1" };
    const isRoot = process.getuid() === 0;
    if (isRoot) await chown(folder, NOBODY, NOBODY);
    const [setpriv, ...nobody] = AS_NOBODY;
    const options = ["--pdeathsig", "KILL", ...(isRoot ? nobody : [])]; // sway refuses to be root's
    desktop.sway = spawn(setpriv, [...options, "sway", "--config", config], {
      stdio: "ignore",
      env: { ...process.env, ...desktop.env, HOME: folder, WAYLAND_DISPLAY: undefined,
        WLR_BACKENDS: "headless", WLR_RENDERER: "pixman", WLR_LIBINPUT_NO_DEVICES: "1" },
    });
    cleanup.addChild(desktop.sway);
    desktop.env.WAYLAND_DISPLAY = await waitFor("sway", async () => {
      const isReady = (await runUnchecked("swaymsg", ["-t", "get_version"], desktop.#options())).code === 0;
      return isReady && (await readdir(folder)).find((name) => /^wayland-\d+$/.test(name));
    });
    return desktop;
  }

  /** Ends the compositor, as a crash would. */
  kill() {
    this.sway.kill("SIGKILL");
  }

  /** The titles of the visible windows. */
  async windows() {
    const { stdout } = await run("swaymsg", ["-t", "get_tree"], this.#options());
    const titles = [];
    const visit = ({ pid, visible, name, nodes, floating_nodes: floating }) => {
      if (pid && visible) titles.push(name);
      for (const node of [...nodes, ...floating]) visit(node);
    };
    visit(JSON.parse(stdout));
    return titles;
  }

  async window(title) {
    await waitFor(`the window "${title}"`, async () => (await this.windows()).includes(title));
  }

  /** Types into the window of that title: texts, and keys by their X names as { key }. */
  async type(title, ...strokes) {
    await run("swaymsg", [`[title="^${title}$"] focus`], this.#options());
    // The window learns of this keyboard only now, and has read all of it only some time after the last key.
    const pause = ["-s", "700"];
    const keys = strokes.flatMap((stroke) => (stroke.key ? ["-k", stroke.key] : ["-d", "15", stroke]));
    // Some compositors tell the window of this keyboard only with its first key, which GDK then takes for that of the one before.
    const firstKey = ["-k", "F23"];
    // GDK overlooks the last key of a keyboard when it comes to what keys do.
    const lastKey = ["-k", "F24"];
    await run("wtype", [...pause, ...firstKey, ...pause, ...keys, ...lastKey, ...pause], this.#options());
  }

  /** Writes a picture of the whole output, in its own pixels. */
  async screenshot(file) {
    await run("grim", [file], this.#options());
  }

  /** How many pixels of the output have this colour, such as "cfe2fa". */
  async pixelsOf(colour) {
    const { stdout } = await run("grim", ["-t", "ppm", "-"], this.#options());
    const wanted = parseInt(colour, 16);
    let count = 0;
    for (let at = stdout.indexOf("\n255\n") + 5; at + 3 <= stdout.length; at += 3) count += stdout.readUIntBE(at, 3) === wanted;
    return count;
  }

  #options() {
    return { env: { ...process.env, ...this.env } };
  }
}
