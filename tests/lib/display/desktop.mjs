// A desktop without a screen: Xvfb with a window manager, and the hands and eyes of a user on it.

import { spawn } from "node:child_process";
import { once } from "node:events";

import { Cleanup } from "../cleanup.mjs";
import { run, runUnchecked, sleep, waitFor } from "../process.mjs";
import { startAccessibility } from "./accessibility.mjs";

export class Desktop {
  #cleanup;

  constructor(display, cleanup) {
    this.display = display;
    this.#cleanup = cleanup;
    /**
     * What a program needs in its environment to appear here, and nowhere else. In the locale C, a container's, Firefox would have
     * no titles, and xdotool no letters.
     */
    this.env = { DISPLAY: display, WAYLAND_DISPLAY: "", GDK_BACKEND: "x11", GTK_THEME: "Adwaita", NO_AT_BRIDGE: "1",
      LC_ALL: "C.UTF-8" };
    this.isAccessible = false;
  }

  /**
   * Starts the display and the window manager, which end with `cleanup`. Where it is `accessible`, programs there tell screen
   * readers what they show (ScreenReader).
   */
  static async start(cleanup = new Cleanup(), { accessible = false, size = "1024x768" } = {}) {
    // The kernel ends it with us, however we end; what runs on the display goes with it.
    const command = ["Xvfb", "-displayfd", "3", "-screen", "0", `${size}x24`, "-nolisten", "tcp", "-noreset"];
    const xvfb = spawn("setpriv", ["--pdeathsig", "KILL", ...command], { stdio: ["ignore", "ignore", "ignore", "pipe"] });
    await started(xvfb, "Xvfb");
    cleanup.addChild(xvfb);
    const display = `:${await firstLine(xvfb.stdio[3], "Xvfb")}`;
    const desktop = new Desktop(display, cleanup);

    desktop.isAccessible = accessible;
    if (accessible) Object.assign(desktop.env, await startAccessibility(desktop.env, cleanup));
    await desktop.#startWindowManager(cleanup);
    return desktop;
  }

  async #startWindowManager(cleanup) {
    const home = await cleanup.folder("openbox");
    const openbox = spawn("openbox", [], {
      stdio: ["ignore", "ignore", "pipe"],
      env: { ...process.env, ...this.env, HOME: home, XDG_CONFIG_HOME: home, XDG_CACHE_HOME: home },
    });
    await started(openbox, "openbox");
    cleanup.addChild(openbox);
    let words = "";
    openbox.stderr.on("data", (chunk) => (words += chunk));
    await waitFor("the window manager", async () => {
      if (openbox.exitCode !== null) throw new Error(`openbox ended on the display ${this.display}: ${words.trim()}`);
      const { stdout } = await this.#try("xprop", "-root", "_NET_SUPPORTING_WM_CHECK");
      return stdout.includes("window id");
    });
  }

  /** Ends the display and all that was started with it. */
  stop() {
    return this.#cleanup.run();
  }

  /** The ids of the visible windows with exactly this title. */
  async windows(title) {
    return this.#search(`^${title.replace(/[.*+?^${}()|[\]\\]/g, "\\$&")}$`);
  }

  /** The visible windows whose titles this extended regular expression is found in: [{ id, title }]. */
  async titled(pattern) {
    const ids = await this.#search(pattern);
    // One that goes meanwhile has no title, and counts as gone.
    const titles = await Promise.all(ids.map(async (id) => (await this.#try("xdotool", "getwindowname", id)).stdout.toString().trim()));
    return ids.map((id, i) => ({ id, title: titles[i] })).filter(({ title }) => title !== "");
  }

  async #search(pattern) {
    const { stdout } = await this.#try("xdotool", "search", "--onlyvisible", "--name", pattern);
    return stdout.toString().split("\n").filter(Boolean);
  }

  /** Waits for a visible window with this title and for its size and place to settle. */
  async window(title, { timeout } = {}) {
    const id = await waitFor(`the window "${title}"`, async () => (await this.windows(title))[0], { timeout });
    let before = "";
    await waitFor(`the window "${title}" to settle`, async () => {
      const now = JSON.stringify(await this.geometry(id));
      return now === before || !(before = now);
    }, { timeout });
    return id;
  }

  async windowGone(title, { timeout } = {}) {
    await waitFor(`the window "${title}" to go`, async () => (await this.windows(title)).length === 0, { timeout });
  }

  /** Waits until the window manager keeps the window above the others. */
  async above(id) {
    await waitFor("the window to stand above the others",
      async () => (await this.property(id, "_NET_WM_STATE")).includes("_NET_WM_STATE_ABOVE"), { timeout: 10_000 });
  }

  /** Place on the screen and size: { x, y, width, height }. */
  async geometry(id) {
    const { stdout } = await this.#xdotool("getwindowgeometry", "--shell", id);
    const numbers = Object.fromEntries([...stdout.toString().matchAll(/^(\w+)=(\d+)$/gm)].map(([, k, v]) => [k, +v]));
    return { x: numbers.X, y: numbers.Y, width: numbers.WIDTH, height: numbers.HEIGHT };
  }

  /** Clicks at a point of the window, once or `times` times fast. */
  async click(id, x, y, times = 1) {
    const place = [Math.round(x), Math.round(y)].map(String);
    // GTK takes what follows a double click within 0.8 s for a triple click, and no double click begins with that.
    if (times > 1) await sleep(800);
    // A window that appears under a resting pointer takes no click before the pointer has moved, as in every GTK program.
    await this.#xdotool("mousemove", "--window", id, "2", "2");
    await this.#xdotool("mousemove", "--window", id, ...place);
    await this.#xdotool("click", "--repeat", String(times), "--delay", "60", "1");
  }

  /** Presses the pointer's button at a point of the window. What is returned lets it go. */
  async hold(id, x, y) {
    await this.#xdotool("mousemove", "--window", id, String(x), String(y), "mousedown", "1");
    return () => this.#xdotool("mouseup", "1");
  }

  /** Gives the window the keyboard, then types the text with real keys. */
  async type(id, text) {
    await this.focus(id);
    // For a letter that no key has, a key is given to it for a moment: the host must look within that moment.
    const delay = /^[ -~]*$/.test(text) ? "15" : "400";
    await this.#xdotool("type", "--delay", delay, "--", text);
  }

  /** Gives the window the keyboard, then presses a key by its X name. */
  async key(id, name) {
    await this.focus(id);
    await this.#xdotool("key", name);
  }

  /** A picture of one window, or of the whole screen. */
  async screenshot(file, id = "root") {
    await this.run("import", ["-window", id, `png:${file}`]);
  }

  /** The different colours (such as "ffffff") in a part of the window as it is on the screen; none when it is gone. */
  async colours(id, { x, y, width, height }) {
    const { stdout: words } = await this.#try("xwininfo", "-id", id);
    const place = /Absolute upper-left X: +(-?\d+)\n +Absolute upper-left Y: +(-?\d+)\n[^]*Map State: IsViewable/.exec(words);
    if (!place) return [];
    // Of the whole screen: for a window that has just gone, import has somebody choose one with the mouse.
    const crop = `${width}x${height}+${Number(place[1]) + x}+${Number(place[2]) + y}`;
    const { stdout } = await this.#try("import", "-window", "root", "-crop", crop, "-depth", "8", "rgb:-");
    return [...new Set(stdout.toString("hex").match(/.{6}/g))];
  }

  /** What the X server says of a property of the window, as xprop prints it. */
  async property(id, name) {
    const { stdout } = await this.run("xprop", ["-id", id, name]);
    return stdout.toString().trim();
  }

  /** Gives the window the keyboard. */
  async focus(id) {
    // Another window may take it at the same moment: then xdotool would wait for ever.
    const options = { env: { ...process.env, ...this.env }, timeout: 2_000 };
    const activate = () => runUnchecked("xdotool", ["windowactivate", "--sync", id], options).catch(() => null);
    const { code, stderr } = await waitFor(`the window ${id} to have the keyboard`, activate, { timeout: 10_000 });
    if (code !== 0) throw new Error(`xdotool windowactivate failed: ${stderr.trim()}`);
    await sleep(50);
  }

  /** Runs a command on this display; `options` as of run. */
  run(command, args, options = {}) {
    return run(command, args, { ...options, env: { ...process.env, ...this.env, ...options.env } });
  }

  #xdotool(...args) {
    return this.run("xdotool", args);
  }

  #try(command, ...args) {
    return runUnchecked(command, args, { env: { ...process.env, ...this.env } });
  }
}

async function started(child, name) {
  child.once("error", () => {});
  if (child.pid === undefined) {
    const [error] = await once(child, "error");
    throw new Error(`${name} cannot be started: ${error.message}`);
  }
}

async function firstLine(stream, name) {
  let text = "";
  for await (const chunk of stream) {
    text += chunk;
    if (text.includes("\n")) return text.split("\n")[0];
  }
  throw new Error(`${name} ended without a display`);
}
