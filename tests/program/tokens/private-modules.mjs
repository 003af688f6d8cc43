// What the tokens of this folder share: a p11-kit configuration of their own, and the driver in the host's folder.

import { mkdir, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { bin } from "../lib/build.mjs";
import { run } from "../lib/process.mjs";

const isRoot = process.getuid() === 0;
const nobody = 65534;

/**
 * The command to put in front of a program that is to use such a token: nothing, unless the tests run as root, whose own
 * configuration p11-kit does not read. Then another user, who may still reach every file.
 */
export const asUser = asUserInGroup(nobody);

/** The same for a token that only members of a group may use. */
export function asUserInGroup(group) {
  return !isRoot ? [] : ["setpriv", `--reuid=${nobody}`, `--regid=${group}`, "--clear-groups",
    "--inh-caps=+dac_override", "--ambient-caps=+dac_override"];
}

/** A token that p11-kit shows alone to a program that runs with its `env`, behind `asUser`. */
export class PrivateToken {
  /**
   * The token of one module, whose .module file has these lines. `folder` becomes the program's home; `certificate` is the
   * user's certificate on the token: the files { pem, der }.
   */
  static async of(folder, lines, { pin, certificate, env = {} }) {
    const config = join(folder, ".config");
    await mkdir(join(config, "pkcs11/modules"), { recursive: true });
    await writeFile(join(config, "pkcs11/pkcs11.conf"), "user-config: only\n");
    await writeFile(join(config, "pkcs11/modules/token.module"), `${lines.join("\n")}\n`);
    if (isRoot) await run("chown", ["-R", `${nobody}:${nobody}`, folder]);
    const token = new PrivateToken();
    return Object.assign(token, { pin, certificate, env: { HOME: folder, XDG_CONFIG_HOME: config, ...env } });
  }

  /** Makes the token reachable for a host that runs in `folder`; gives the environment that the host needs. */
  async install(folder) {
    await symlink(join(bin, "QMTokenDriver.so"), join(folder, "QMTokenDriver.so"));
    return this.env;
  }
}
