// openCryptoki's soft token: Debian's opencryptoki and opensc. There is one in a machine, and only root can set it up.

import { spawn } from "node:child_process";
import { once } from "node:events";
import { access, readdir, rm } from "node:fs/promises";
import { join } from "node:path";

import { run, runUnchecked, waitFor } from "../process.mjs";
import { asUserInGroup, pkcs11Tool, privateToken, setUp } from "./private-token.mjs";

const STORE = "/var/lib/opencryptoki/swtok";
const sharedMemory = /^var\.lib\.opencryptoki/; // what all its programs know of its tokens
const SLOT = "3"; // of the soft token, in Debian's opencryptoki.conf
const SO_PIN = "87654321"; // of a token that nobody has set up
const GROUP = "pkcs11";
const MODULE_FILE = "libopencryptoki.so"; // in p11-kit's own folder
const PIN = "12345678";

/** Why there can be no such token here; false when there can. */
export const noOpencryptoki = await whyNot();

/** A token with one key that it made itself, and a certificate for that. `cleanup` takes it away again. */
export async function opencryptoki(folder, world, cleanup) {
  cleanup.add(clear);
  // Newer ones have a user of their own; as root they would go to the background to become that.
  const hasUser = (await runUnchecked("id", ["pkcsslotd"])).code === 0;
  const asItsUser = hasUser ? ["--reuid=pkcsslotd", `--regid=${GROUP}`, "--clear-groups"] : [];
  const service = spawn("setpriv", [...asItsUser, "pkcsslotd", "-f"], { stdio: "ignore" });
  const gone = once(service, "close");
  cleanup.add(() => {
    service.kill();
    return gone;
  });
  // Its users have to be in this group, and their names in /etc/group too.
  await run("gpasswd", ["--add", "nobody", GROUP]);
  cleanup.add(() => run("gpasswd", ["--delete", "nobody", GROUP]));

  const tool = await pkcs11Tool(MODULE_FILE);
  await waitFor("openCryptoki", () => tool("--list-slots").catch(() => false));
  const certificate = await setUp(tool, folder, world.authority, { name: "opencryptoki", pin: PIN, soPin: SO_PIN, slot: ["--slot", SLOT] });
  const token = await privateToken(folder, [`module: ${MODULE_FILE}`], { pin: PIN, certificate });
  return Object.assign(token, { wrapper: asUserInGroup(GROUP) });
}

async function whyNot() {
  if (process.getuid() !== 0) return "only root can set up openCryptoki's token";
  const hasUser = await access(join(STORE, "MK_USER")).then(() => true, () => false);
  return hasUser && "openCryptoki's token is somebody's";
}

async function clear() {
  const files = (await readdir(STORE, { withFileTypes: true })).filter((entry) => entry.isFile()).map(({ name }) => name);
  const objects = (await readdir(join(STORE, "TOK_OBJ"))).map((name) => join("TOK_OBJ", name));
  for (const name of [...files, ...objects]) await rm(join(STORE, name));
  for (const name of await readdir("/dev/shm")) if (sharedMemory.test(name)) await rm(join("/dev/shm", name));
}
