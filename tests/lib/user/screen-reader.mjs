// What a user hears who cannot see the screen. How to use it, on a desktop of Desktop.start(cleanup, { accessible: true }):
//   const reader = await ScreenReader.start(desktop, cleanup); … await reader.hears("focus push button \"OK\""); reader.transcript()

import { spawn } from "node:child_process";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";

import { sleep, waitFor } from "../process.mjs";

const CLIENT = fileURLToPath(new URL("screen-reader.py", import.meta.url));

export class ScreenReader {
  #child;
  #trees = [];
  /** All that was told, in order, as screen-reader.py writes it down. */
  events = [];
  errors = "";

  /**
   * Listens on an accessible desktop until `cleanup`. `program`, where given, is a regular expression (Python's, too) for the
   * names of the processes that are listened to.
   */
  static async start(desktop, cleanup, { program = /^/ } = {}) {
    const reader = new ScreenReader();
    const child = spawn("setpriv", ["--pdeathsig", "KILL", "/usr/bin/python3", CLIENT, program.source], {
      stdio: "pipe", env: { ...process.env, ...desktop.env, PYTHONDONTWRITEBYTECODE: "1" },
    });
    reader.#child = child;
    cleanup.addChild(child);
    let isReady = false;
    child.stdin.on("error", () => {});
    child.stderr.on("data", (chunk) => (reader.errors += chunk));
    createInterface(child.stdout).on("line", (line) => {
      const told = JSON.parse(line);
      if (told.ready) isReady = true;
      else if ("tree" in told) reader.#trees.push(told.tree);
      else reader.events.push(told);
    });
    await waitFor("the screen reader", () => {
      if (child.exitCode !== null) throw new Error(`The screen reader ended: ${reader.errors.trim().split("\n").pop()}`);
      return isReady;
    });
    return reader;
  }

  /** Begins a new transcript. */
  forget() {
    this.events = [];
  }

  /** What was to be heard since `forget`, line by line. */
  lines() {
    const lines = this.events.filter((event) => !event.gone).flatMap(wordsOf);
    return lines.filter((line, i) => line !== lines[i - 1]);
  }

  /** The lines as the text of a file. */
  transcript() {
    return this.lines().map((line) => `${line}\n`).join("");
  }

  /** Waits for a line that is this text, or matches this expression, behind the first `after` lines; gives its index. */
  async hears(wanted, { timeout = 15_000, after = 0 } = {}) {
    const isIt = (line, i) => i >= after && (typeof wanted === "string" ? line === wanted : wanted.test(line));
    await waitFor(`to hear ${wanted}`, () => this.lines().some(isIt), { timeout }).catch((error) => {
      throw new Error(`${error.message}. Heard was:\n${this.transcript()}${this.errors}`);
    });
    return this.lines().findIndex(isIt);
  }

  /** Waits until nothing was told for that many milliseconds. */
  async silence(milliseconds = 700) {
    for (let before = -1; before !== this.events.length;) {
      before = this.events.length;
      await sleep(milliseconds);
    }
  }

  /** What is in the window of that title: { role, name, states, focused, description?, text, place, children }. Null where there is none. */
  async tree(title) {
    const count = this.#trees.length;
    this.#child.stdin.write(`${JSON.stringify({ tree: title })}\n`);
    await waitFor(`the tree of "${title}"`, () => this.#trees.length > count);
    return this.#trees[count];
  }

  /** A browser's window of that title, as of `tree`, with nothing in it but the document of that other title. */
  async page(windowTitle, title) {
    const window = await this.tree(windowTitle);
    const find = (node) => (node.role === "document web" && node.name === title ? [node] : node.children.flatMap(find));
    const documents = window ? find(window) : [];
    if (documents.length !== 1) throw new Error(`${documents.length} documents "${title}" in the window "${windowTitle}"`);
    return { ...window, children: documents };
  }
}

/** Groups that a browser makes, and that nobody hears of where they have no name: another version may make others. */
const GROUPS = new Set(["section", "header", "footer", "static"]);

/** A tree of ScreenReader.tree as lines, indented by two blanks for each level. */
export function treeLines(node, indent = "") {
  const { name, text, focused, children } = node;
  const line = [indent, named(node), focused ? " focused" : "", text && text !== name ? `: ${text}` : ""].join("");
  // Chromium tells of each text once more as a child.
  const isNew = (child) => child.role !== "static" || !child.name || ![name, text].some((each) => each.includes(child.name.trim()));
  const isSilent = GROUPS.has(node.role) && !name && !text && !focused;
  const inner = children.filter(isNew).flatMap((child) => treeLines(child, isSilent ? indent : `${indent}  `));
  return isSilent ? inner : [line, ...inner];
}

/** What is to be heard of an event. */
function wordsOf(event) {
  const type = event.event;
  if (type === "window:activate") return [`window ${named(event)}`, ...(event.texts ?? []).map((text) => `  text "${text.replace(/\s+/g, " ")}"`)];
  if (type === "object:active-descendant-changed") return [`focus ${named(event)}`];
  if (type === "object:state-changed:focused") return event.detail ? [`focus ${named(event)}`] : [];
  if (/^object:state-changed:(checked|expanded)$/.test(type)) return [`change ${named(event)}`];
  if (type === "object:announcement") return [`say "${event.text ?? event.name}"`];
  if (type.startsWith("object:text-changed:insert")) return event.live === "off" || !event.text ? [] : [`say "${event.text}"`];
  return [];
}

function named({ role, name, states, description }) {
  return [role, `"${name}"`, ...states, ...(description ? [`(${description})`] : [])].join(" ");
}
