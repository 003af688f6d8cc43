// What p11-kit shows to a program: the modules of a home of its own, and no other of this machine.

import { mkdir, writeFile } from "node:fs/promises";
import { join } from "node:path";

/**
 * Makes `folder` a home in which p11-kit knows one module, whose .module file has these lines. Gives what a program needs in
 * its environment to see that, and nothing else.
 */
export async function p11KitHome(folder, lines) {
  const config = join(folder, ".config");
  await mkdir(join(config, "pkcs11/modules"), { recursive: true });
  await writeFile(join(config, "pkcs11/pkcs11.conf"), "user-config: only\n");
  await writeFile(join(config, "pkcs11/modules/token.module"), `${lines.join("\n")}\n`);
  return { HOME: folder, XDG_CONFIG_HOME: config };
}
