// The host as it is installed in a home, where browsers find and start it.

import { copyFile, readdir, readFile, rm, symlink, writeFile } from "node:fs/promises";
import { basename, join } from "node:path";

import { run, waitFor } from "../process.mjs";

// Python's expression ANSWER, of the request `request`, is the message that goes back.
const BROKEN_PROGRAM = `#!/usr/bin/python3
import json, struct, sys
while prefix := sys.stdin.buffer.read(4):
    request = json.loads(sys.stdin.buffer.read(struct.unpack("=I", prefix)[0]))
    answer = ANSWER
    message = (answer if isinstance(answer, str) else json.dumps(answer)).encode()
    sys.stdout.buffer.write(struct.pack("=I", len(message)) + message)
    sys.stdout.flush()
`;

/** The file by which a browser ("chromium" or "firefox") knows a program of this name, from the home on. */
export function manifestOf(browser, name) {
  const folder = browser === "firefox" ? ".mozilla/native-messaging-hosts" : `.config/${browser}/NativeMessagingHosts`;
  return join(folder, `${name}.json`);
}

/** Of a process's name the kernel keeps that many characters. */
const LONGEST_NAME = 15;

/**
 * What the kernel tells everybody of a process: { name, state, session }. Who keeps a PIN hides all else, and from its own user too.
 */
async function statusOf(pid) {
  const line = await readFile(`/proc/${pid}/stat`, "latin1").catch(() => ""); // it has ended
  const [, name, state, session] = /\((.*)\) (\S) \d+ \d+ (\d+) /s.exec(line) ?? [];
  return { name, state, session };
}

export class InstalledProgram {
  #product;
  #env;
  #sessions = new Set();

  /**
   * `product`: the files { program, driver }, the script { install } with { folder }, the files' folder, and the { name }. A
   * product that is installed for all users has no such script: its programs find this home by themselves.
   */
  constructor(product, { home, env }) {
    this.#product = product;
    this.#env = { ...process.env, ...env };
    this.home = home;
    this.folder = join(home, ".local/share/quillmark");
  }

  /** Runs the install script for this home. */
  async install(...options) {
    if (this.#product.install) await run(this.#product.install, ["--from", this.#product.folder, ...options], { env: this.#env });
  }

  manifest(browser) {
    return join(this.home, manifestOf(browser, this.#product.name));
  }

  /** Puts a token's module in the driver's place until the test `t` ends. */
  async useToken(t, token) {
    await this.#replace(t, this.#product.driver, (file) => symlink(token.module, file));
    await token.prepare(this.folder);
  }

  /** Puts a script in the host's place until the test `t` ends. It answers each request by what it is given here. */
  async useBrokenProgram(t, answer) {
    const script = BROKEN_PROGRAM.replace("ANSWER", answer);
    await this.#replace(t, this.#product.program, (file) => writeFile(file, script, { mode: 0o755 }));
  }

  async #replace(t, original, put) {
    const file = join(this.folder, basename(original));
    const before = new Set(await readdir(this.folder));
    await rm(file);
    await put(file);
    t.after(async () => {
      for (const name of await readdir(this.folder)) if (!before.has(name)) await rm(join(this.folder, name));
      await rm(file, { force: true });
      await copyFile(original, file);
    });
  }

  /** Counts the programs in the session of that process, a browser's, as this home's: its own, and those that the browser starts. */
  async follow(browser) {
    this.#sessions.add((await statusOf(browser)).session);
  }

  /** The ids of this home's programs that run. */
  async running() {
    const pids = (await readdir("/proc")).filter((name) => /^\d+$/.test(name)).map(Number);
    const statuses = await Promise.all(pids.map(statusOf));
    const name = basename(this.#product.program).slice(0, LONGEST_NAME);
    return pids.filter((_, i) => statuses[i].name === name && statuses[i].state !== "Z" && this.#sessions.has(statuses[i].session));
  }

  /** Sends a signal to all of them. */
  async signal(name) {
    for (const pid of await this.running()) {
      try {
        process.kill(pid, name);
      } catch {
        // It has ended meanwhile.
      }
    }
  }

  /** Waits until no program of this home runs. */
  gone(options) {
    return waitFor("the signing program to end", async () => (await this.running()).length === 0, options);
  }
}
