// Keys in a TPM 2.0, which here is software: Debian's libtpm2-pkcs11-1, libtss2-tcti-swtpm0, swtpm and opensc.

import { spawn } from "node:child_process";
import { mkdir, stat } from "node:fs/promises";
import { join } from "node:path";

import { run, waitFor } from "../lib/process.mjs";
import { PrivateToken } from "./private-modules.mjs";

const moduleFile = "libtpm2_pkcs11.so"; // in p11-kit's own folder
const label = "Quillmark";
const pin = "1234";
const id = "00a1ff10";

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
  const module = join(stdout.toString().trim(), moduleFile);
  const tool = (...args) => run("pkcs11-tool", ["--module", module, ...args], { env: { ...process.env, ...env } });
  const onToken = ["--token-label", label, "--login"];
  await tool("--init-token", "--label", label, "--so-pin", pin);
  await tool(...onToken, "--login-type", "so", "--so-pin", pin, "--init-pin", "--pin", pin);
  await tool(...onToken, "--pin", pin, "--keypairgen", "--key-type", "rsa:2048", "--id", id);
  const publicKey = join(folder, "public.der");
  await tool("--token-label", label, "--read-object", "--type", "pubkey", "--id", id, "-o", publicKey);
  const certificate = await world.authority.certify("tpm", publicKey);
  await tool(...onToken, "--pin", pin, "--write-object", certificate.der, "--type", "cert", "--id", id);
  return PrivateToken.of(folder, [`module: ${moduleFile}`], { pin, certificate, env });
}
