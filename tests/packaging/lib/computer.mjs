// A computer with a home and a root folder of its own, with browsers that are only there by name, and a signing program
// that stands in for the real one.

import { copyFile, cp, mkdir, readdir, readFile, rm, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import { manifestOf } from "../../lib/program/installed.mjs";
import { product, registration, root } from "../../lib/quillmark.mjs";
import { Cleanup, runUnchecked } from "../../lib/kit.mjs";


/** Answers every request by its echo, as the signing program does with one that has no action; tells where it runs. */
export const ECHOING = `#!/usr/bin/python3
import json, os, struct, sys
with open("started", "w") as file:
    json.dump({"arguments": sys.argv[1:], "folder": os.getcwd(), "files": sorted(os.listdir())}, file)
while prefix := sys.stdin.buffer.read(4):
    request = json.loads(sys.stdin.buffer.read(struct.unpack("=I", prefix)[0]))
    reply = {"status_cd": 0, "result": "QMHost Error: echo: " + request["text"], "nonce": request["nonce"]}
    text = json.dumps(reply).encode()
    sys.stdout.buffer.write(struct.pack("=I", len(text)) + text)
    sys.stdout.flush()
`;

/** What quillmark-tokens says with one token and one certificate that can sign. */
export const GOOD_TOKENS = {
  canSign: 1,
  modules: [{
    name: "softhsm2", used: true,
    slots: [{ description: "slot", token: { label: "Token", offered: true, certificates: [
      { subject: "CN=Asha Rao", offered: true, canSign: true, needsLogin: true, reasons: [] },
      { subject: "CN=Old", offered: false, canSign: false, needsLogin: false, reasons: ["expired"] },
    ] } }],
  }],
};

export class Computer {
  /**
   * Goes with the test `t`. `browsers` are commands that are there, in the folder that stands for /; `program` is the script in
   * the signing program's place, `tokens` what quillmark-tokens says, `more` what else is in the environment.
   */
  static async make(t, { browsers = ["chromium", "firefox-esr"], program = ECHOING, tokens = GOOD_TOKENS, more = {} } = {}) {
    const computer = new Computer();
    const cleanup = new Cleanup();
    t.after(() => cleanup.run());
    computer.folder = await cleanup.folder("computer");
    computer.home = join(computer.folder, "home");
    computer.root = join(computer.folder, "root");
    computer.program = join(computer.folder, "program");
    await mkdir(computer.home);
    await mkdir(join(computer.root, "usr/bin"), { recursive: true });
    for (const name of browsers) await computer.addBrowser(name);
    computer.more = more;
    await computer.#makeProgram(program, tokens);
    return computer;
  }

  async addBrowser(name, folder = "usr/bin") {
    await mkdir(join(this.root, folder), { recursive: true });
    await writeFile(join(this.root, folder, name), "#!/bin/sh\n", { mode: 0o755 });
  }

  async #makeProgram(program, tokens) {
    await mkdir(this.program);
    await this.setProgram(program);
    await this.setTokens(tokens);
    await writeFile(join(this.program, "quillmark-tokens"), `#!/bin/sh\ncat '${this.tokens}'\n`, { mode: 0o755 });
    await writeFile(join(this.program, "QMLogo.png"), "a picture");
    await copyFile(product.driver, join(this.program, "QMTokenDriver.so"));
  }

  /** Puts a script in the signing program's place. */
  setProgram(script) {
    return writeFile(join(this.program, "QMChromeExtHost"), script, { mode: 0o755 });
  }

  /** From now on quillmark-tokens says this. */
  setTokens(tokens) {
    return writeFile(this.tokens, JSON.stringify(tokens));
  }

  get tokens() {
    return join(this.folder, "tokens.json");
  }

  /** The folder of an installation for one user, and the working folder of one for all. */
  get userFolder() {
    return join(this.home, ".local/share/quillmark");
  }

  /** The folder with everything as `./install` lays it out, without registering anything. */
  async layOut() {
    const folder = this.userFolder;
    await mkdir(folder, { recursive: true, mode: 0o700 });
    await cp(this.program, folder, { recursive: true });
    for (const name of await readdir(join(root, "packaging"))) {
      if (/^quillmark|\.json$/.test(name)) await cp(join(root, "packaging", name), join(folder, name));
    }
    this.installed = folder;
    return folder;
  }

  /** Runs one of the tools as laid out; { code, out, err }. */
  tool(name, ...args) {
    const options = name === "quillmark-host" ? [] : ["--root", this.root];
    return this.run(join(this.installed, name), ...args, ...options);
  }

  /** Runs the project's install script. */
  install(...args) {
    return this.run(product.install, "--from", this.program, ...args);
  }

  /** Runs a command in this environment; { code, out, err }. */
  async run(command, ...args) {
    const { code, stdout, stderr } = await runUnchecked(command, args, { cwd: this.root, env: this.env });
    return { code, out: stdout.toString(), err: stderr };
  }

  get env() {
    const { DISPLAY, WAYLAND_DISPLAY, XDG_CONFIG_HOME, XDG_DATA_HOME, ...rest } = process.env;
    // No session bus but one of a test's own, in the place of that of whoever runs the tests.
    return { ...rest, HOME: this.home, DBUS_SESSION_BUS_ADDRESS: "unix:path=/gone", ...this.more };
  }

  /** The path of the manifest of this user. */
  userManifest(browser) {
    return join(this.home, manifestOf(browser, registration.name));
  }

  /** Changes members of this user's manifest. */
  async changeManifest(browser, changes) {
    const file = this.userManifest(browser);
    await this.write(file, { ...(await this.read(file)), ...changes });
  }

  systemManifest(folder) {
    return join(this.root, folder, `${registration.name}.json`);
  }

  async read(file) {
    return JSON.parse(await readFile(file, "utf8"));
  }

  /** Writes a file with its folders, in the place of what is there: never through a link to somewhere else. */
  async write(file, content) {
    await mkdir(dirname(file), { recursive: true });
    await rm(file, { force: true });
    await writeFile(file, typeof content === "string" ? content : JSON.stringify(content));
  }
}
