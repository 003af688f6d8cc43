// Keys in a TPM 2.0, which here is software: Debian's libtpm2-pkcs11-1, libtss2-tcti-swtpm0, swtpm and opensc.

import { spawn } from "node:child_process";
import { mkdir, stat } from "node:fs/promises";
import { join } from "node:path";

import { run, waitFor } from "../process.mjs";
import { privateToken } from "./private-token.mjs";

const MODULE_FILE = "libtpm2_pkcs11.so"; // in p11-kit's own folder
const LABEL = "Quillmark";
const PIN = "1234";
const ID = "00a1ff10";

/** A TPM with one key that it made itself, and a certificate for that. Ends with `cleanup`. */
export async function tpm2(folder, world, cleanup) {
  const socket = join(folder, "tpm");
  await Promise.all(["state", "store"].map((name) => mkdir(join(folder, name))));
  cleanup.addChild(spawn("swtpm", ["socket", "--tpm2", "--tpmstate", `dir=${join(folder, "state")}`,
    "--server", `type=unixio,path=${socket},mode=0666`, "--ctrl", `type=unixio,path=${socket}.ctrl,mode=0666`,
    "--flags", "not-need-init,startup-clear"], { stdio: "ignore" }));
  await waitFor("the TPM", () => stat(socket).catch(() => false));

  const env = { TPM2_PKCS11_TCTI: `swtpm:path=${socket}`, TPM2_PKCS11_STORE: join(folder, "store") };
  const { stdout } = await run("pkg-config", ["--variable=p11_module_path", "p11-kit-1"]);
  const module = join(stdout.toString().trim(), MODULE_FILE);
  const tool = (...args) => run("pkcs11-tool", ["--module", module, ...args], { env: { ...process.env, ...env } });
  const onToken = ["--token-label", LABEL, "--login"];
  await tool("--init-token", "--label", LABEL, "--so-pin", PIN);
  await tool(...onToken, "--login-type", "so", "--so-pin", PIN, "--init-pin", "--pin", PIN);
  await tool(...onToken, "--pin", PIN, "--keypairgen", "--key-type", "rsa:2048", "--id", ID);
  const publicKey = join(folder, "public.der");
  await tool("--token-label", LABEL, "--read-object", "--type", "pubkey", "--id", ID, "-o", publicKey);
  const certificate = await world.authority.certify("tpm", publicKey);
  await tool(...onToken, "--pin", PIN, "--write-object", certificate.der, "--type", "cert", "--id", ID);
  return privateToken(folder, [`module: ${MODULE_FILE}`], { pin: PIN, certificate, env });
}
