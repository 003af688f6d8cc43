// A smart card without hardware: pcscd with the virtual reader of vsmartcard-vpcd, libcacard's card in it, and OpenSC's
// PKCS#11 module above. Debian's pcscd, vsmartcard-vpcd, libcacard0, opensc and libnss3-tools.

import { spawn } from "node:child_process";
import { access, mkdir, rm, symlink, writeFile } from "node:fs/promises";
import { createServer } from "node:net";
import { join } from "node:path";
import { setImmediate } from "node:timers/promises";
import { fileURLToPath } from "node:url";

import { run, runUnchecked, waitFor } from "../../process.mjs";
import { privateToken } from "../private-token.mjs";

const script = (name) => fileURLToPath(new URL(name, import.meta.url));
const isRoot = process.getuid() === 0;
const PCSCD = "/usr/sbin/pcscd";
const VPCD = "/usr/lib/pcsc/drivers/serial/libifdvpcd.so";
const PYTHON = "/usr/bin/python3"; // Debian's, which finds Debian's libraries
/** What pcscd says when it has seen it, which takes it half a second: it asks the reader from time to time. */
const [INSERTED, REMOVED, SILENT] = ["Card inserted into", "Card Removed From", "Error communicating to:"];
const NAME = "Quillmark"; // of the reader
const RUN_FOLDER = "/run/pcscd"; // pcscd does not start without it

/** Why there can be no card reader here; false when there can. */
export const noReader = !isRoot && await access(RUN_FOLDER).then(() => false,
  () => `pcscd wants the folder ${RUN_FOLDER}, which systemd or root makes`);

/** A card in its reader: a token like the others of the tests. */
export async function smartCard(folder, world, cleanup) {
  const card = await makeCard(folder, world, { holder: "Asha Rao", pin: "123456" });
  const reader = await CardReader.start(cleanup);
  await reader.insert(card);
  return Object.assign(await reader.token(folder, card), { card, reader });
}

/** A card reader with its service. Both end with `cleanup`. */
export class CardReader {
  #cleanup;
  #folder;
  #port;
  #unplugged;
  #service = null;
  #card = null;

  static async start(cleanup) {
    const reader = new CardReader();
    reader.#cleanup = cleanup;
    reader.#folder = await cleanup.folder("pcscd");
    reader.#unplugged = join(reader.#folder, "unplugged");
    reader.#port = await freePortPair();
    /** What a program needs in its environment to see this reader, and no other. */
    reader.env = { PCSCLITE_CSOCK_NAME: join(reader.#folder, "socket") };
    await mkdir(join(reader.#folder, "readers"));
    const driver = join(reader.#folder, "driver.so");
    await symlink(VPCD, join(reader.#folder, "libifdvpcd.so.0")); // its own name for itself
    await run("g++", ["-shared", "-fPIC", "-std=c++20", "-o", driver, script("unpluggable.cpp"),
      "-Wl,--no-as-needed,-rpath,$ORIGIN", VPCD]);
    await writeFile(join(reader.#folder, "readers/vpcd"), readerLines(driver, reader.#port));
    if (isRoot) {
      await mkdir(RUN_FOLDER, { recursive: true });
      await run("chown", ["-R", "nobody", reader.#folder]);
    }
    await reader.startService();
    return reader;
  }

  /** The token that OpenSC makes of the card, for a host whose home is `folder`. */
  token(folder, { certificate, pin }) {
    return privateToken(folder, ["module: opensc-pkcs11.so"], { certificate, pin, env: this.env });
  }

  async startService() {
    // As root it would take the place of the machine's own pcscd in its folder.
    const withoutRights = isRoot ? ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"] : [];
    const service = [PCSCD, "--foreground", "--info", "--config", join(this.#folder, "readers"), ...await withoutPolkit()];
    this.#service = this.#start(["env", `QM_UNPLUGGED=${this.#unplugged}`, PYTHON, script("pcscd.py"),
      this.env.PCSCLITE_CSOCK_NAME, ...withoutRights, ...service]);
    await this.#service.says("daemon ready", 1);
  }

  async stopService() {
    await this.#service.end();
  }

  /** Pulls the reader's cable. Debian's pcscd takes only USB readers off its list; of this one it says that nobody answers. */
  async unplug() {
    await writeFile(this.#unplugged, "");
    await this.#card.end();
    await this.#service.says(`${SILENT} ${NAME}`, 1);
  }

  /** Plugs the reader in again, with no card in it. */
  async plugIn() {
    await rm(this.#unplugged);
  }

  /** Puts the card in, and waits until the reader has it. */
  async insert(card) {
    const before = this.#service.count(INSERTED);
    this.#card = this.#start([PYTHON, script("card.py"), card.database, this.#port, ...card.nicknames]);
    await this.#service.says(INSERTED, before + 1);
  }

  /** Pulls the card, if it is not out already, and waits until the reader has seen that. */
  async pull() {
    await this.#card.end();
    await this.#service.says(REMOVED, this.#service.count(INSERTED));
  }

  /** The card will be pulled while it makes its next signature. */
  pullAtSignature() {
    this.#card.child.kill("SIGUSR1");
  }

  /** How many PINs have reached the card since it was put in. */
  async pins() {
    await setImmediate(); // what the card has said is read
    return this.#card.count("PIN\n");
  }

  #start([command, ...args]) {
    const child = spawn(command, args.map(String), { stdio: ["ignore", "pipe", "pipe"] });
    this.#cleanup.addChild(child);
    let words = "";
    for (const stream of [child.stdout, child.stderr]) stream.on("data", (chunk) => (words += chunk));
    const gone = new Promise((resolve) => child.once("close", () => resolve((words += "It has ended."))));
    const count = (text) => words.split(text).length - 1;
    return {
      child,
      count,
      says: (text, times) => waitFor(`${text} (${times})`, () => count(text) >= times).catch(({ message }) => {
        throw new Error(`${message} in:\n${words}`);
      }),
      end: async () => {
        child.kill();
        await gone;
      },
    };
  }
}

/**
 * A card in `folder`: { certificate, pin, database, nicknames }. `holder` is the common name on its certificates, which OpenSC
 * makes the token's label; its model and its serial number are those of every card of libcacard. `certificate` is the first.
 */
export async function makeCard(folder, world, { holder, pin }) {
  const usages = { identity: "critical,digitalSignature,nonRepudiation", signature: "critical,digitalSignature,nonRepudiation",
    encryption: "critical,keyEncipherment" };
  const database = join(folder, holder);
  await mkdir(database);
  const pinFile = join(folder, `${holder}.pin`);
  await writeFile(pinFile, pin);
  await run("certutil", ["-N", "-d", `sql:${database}`, "-f", pinFile]);
  const certificates = [];
  for (const [purpose, usage] of Object.entries(usages)) {
    // NSS gives all certificates of one subject one nickname, so that each needs a subject of its own.
    const certificate = await world.authority.issue(`${holder}-${purpose}`, { usage,
      subject: `/C=IN/O=Quillmark Test/OU=${purpose}/CN=${holder}` });
    certificates.push(certificate);
    const pkcs12 = join(folder, `${holder}-${purpose}.p12`);
    await run("openssl", ["pkcs12", "-export", "-name", purpose, "-in", certificate.pem, "-inkey", certificate.key,
      "-passout", `file:${pinFile}`, "-out", pkcs12]);
    await run("pk12util", ["-i", pkcs12, "-d", `sql:${database}`, "-k", pinFile, "-w", pinFile]);
  }
  return { certificate: certificates[0], pin, database, nicknames: Object.keys(usages) };
}

/** Newer ones ask polkit, which tests need not have, whether a program may use cards, unless they are told not to. */
async function withoutPolkit() {
  const { stdout } = await runUnchecked(PCSCD, ["--help"]);
  return stdout.includes("--disable-polkit") ? ["--disable-polkit"] : [];
}

const readerLines = (driver, port) => `FRIENDLYNAME "${NAME}"
DEVICENAME /dev/null:${port}
LIBPATH ${driver}
CHANNELID ${port}
`;

/** The first of two ports side by side that nobody uses: vpcd has two slots. */
async function freePortPair() {
  return waitFor("two free ports", async () => {
    const port = 10_000 + 2 * Math.floor(Math.random() * 10_000); // below those that the kernel gives to others
    return (await isFree(port)) && (await isFree(port + 1)) && port;
  });
}

function isFree(port) {
  return new Promise((resolve) => {
    const server = createServer().once("error", () => resolve(false));
    server.listen(port, "0.0.0.0", () => server.close(() => resolve(true)));
  });
}
