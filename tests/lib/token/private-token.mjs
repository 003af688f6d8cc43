// Tokens of modules that want a user's own p11-kit configuration, which root has none of.

import { join } from "node:path";

import { AS_NOBODY, NOBODY, run } from "../process.mjs";
import { p11KitHome } from "./p11-kit.mjs";

const isRoot = process.getuid() === 0;

/**
 * The command to put in front of a program that is to use such a token: nothing, unless the tests run as root, whose own
 * configuration p11-kit does not read. Then another user, who may still reach every file.
 */
export const asUser = asUserInGroup(NOBODY);

/** The same for a token that only the members of a group may use. */
export function asUserInGroup(group) {
  const asNobody = AS_NOBODY.map((word) => (word.startsWith("--regid=") ? `--regid=${group}` : word));
  return isRoot ? [...asNobody, "--inh-caps=+dac_override", "--ambient-caps=+dac_override"] : [];
}

/**
 * The token of one module, whose .module file has these lines, for a program that runs with its `env`, behind `asUser`.
 * `folder` becomes the host's home; `certificate` is the user's certificate on the token.
 */
export async function privateToken(folder, lines, { pin, certificate, env = {} }) {
  const home = await p11KitHome(folder, lines);
  if (isRoot) await run("chown", ["-R", `${NOBODY}:${NOBODY}`, folder]);
  return { pin, certificate, env: { ...home, ...env } };
}

/** pkcs11-tool on a module of p11-kit's own folder, as a function of its other arguments. */
export async function pkcs11Tool(moduleFile, env = {}) {
  const { stdout } = await run("pkg-config", ["--variable=p11_module_path", "p11-kit-1"]);
  const module = join(stdout.toString().trim(), moduleFile);
  return (...args) => run("pkcs11-tool", ["--module", module, ...args], { env: { ...process.env, ...env } });
}

/** Sets a token up by such a function: gives it a PIN, a key that it makes itself, and a certificate for that, which is returned. */
export async function setUp(tool, folder, authority, { name, pin, soPin, slot = [] }) {
  const [label, id] = ["Quillmark", "00a1ff10"];
  const onToken = ["--token-label", label, "--login"];
  await tool("--init-token", ...slot, "--label", label, "--so-pin", soPin);
  await tool(...onToken, "--login-type", "so", "--so-pin", soPin, "--init-pin", "--new-pin", pin);
  await tool(...onToken, "--pin", pin, "--keypairgen", "--key-type", "rsa:2048", "--id", id);
  const publicKey = join(folder, "public.der");
  await tool("--token-label", label, "--read-object", "--type", "pubkey", "--id", id, "-o", publicKey);
  const certificate = await authority.certify(name, publicKey);
  await tool(...onToken, "--pin", pin, "--write-object", certificate.der, "--type", "cert", "--id", id);
  return certificate;
}
