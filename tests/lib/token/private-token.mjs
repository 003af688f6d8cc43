// Tokens of modules that want a user's own p11-kit configuration, which root has none of.

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
 * `folder` becomes the program's home; `certificate` is the user's certificate on the token.
 */
export async function privateToken(folder, lines, { pin, certificate, env = {} }) {
  const home = await p11KitHome(folder, lines);
  if (isRoot) await run("chown", ["-R", `${NOBODY}:${NOBODY}`, folder]);
  return { pin, certificate, env: { ...home, ...env } };
}
