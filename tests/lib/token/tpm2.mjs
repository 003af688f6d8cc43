// Keys in a TPM 2.0, which here is software: Debian's libtpm2-pkcs11-1, libtss2-tcti-swtpm0, swtpm and opensc.

import { spawn } from "node:child_process";
import { mkdir, stat } from "node:fs/promises";
import { join } from "node:path";

import { waitFor } from "../process.mjs";
import { pkcs11Tool, privateToken, setUp } from "./private-token.mjs";

const MODULE_FILE = "libtpm2_pkcs11.so"; // in p11-kit's own folder
const PIN = "1234";

/** A TPM with one key that it made itself, and a certificate for that. Ends with `cleanup`. */
export async function tpm2(folder, world, cleanup) {
  const socket = join(folder, "tpm");
  await Promise.all(["state", "store"].map((name) => mkdir(join(folder, name))));
  cleanup.addChild(spawn("swtpm", ["socket", "--tpm2", "--tpmstate", `dir=${join(folder, "state")}`,
    "--server", `type=unixio,path=${socket},mode=0666`, "--ctrl", `type=unixio,path=${socket}.ctrl,mode=0666`,
    "--flags", "not-need-init,startup-clear"], { stdio: "ignore" }));
  await waitFor("the TPM", () => stat(socket).catch(() => false));

  const env = { TPM2_PKCS11_TCTI: `swtpm:path=${socket}`, TPM2_PKCS11_STORE: join(folder, "store") };
  const tool = await pkcs11Tool(MODULE_FILE, env);
  const certificate = await setUp(tool, folder, world.authority, { name: "tpm", pin: PIN, soPin: PIN });
  return privateToken(folder, [`module: ${MODULE_FILE}`], { pin: PIN, certificate, env });
}
