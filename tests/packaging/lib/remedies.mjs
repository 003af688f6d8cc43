// What a user of a made-up computer has for following the doctor's remedies to the letter: the commands that they name, each of
// which works on that computer alone.

import { chmod } from "node:fs/promises";
import { join } from "node:path";

import { product } from "../../lib/quillmark.mjs";

/** Follows a remedy's command in a folder with Quillmark's source; gives what it ends with. `apt` is what apt does. */
export async function follow(computer, command, { apt = "exit 1" } = {}) {
  const folder = join(computer.folder, "commands");
  const source = `exec '${product.install}' --from '${computer.program}'`;
  const scripts = {
    sudo: 'exec "$@"',
    apt,
    systemctl: `mkdir -p '${computer.root}/run/pcscd'; echo >'${computer.root}/run/pcscd/pcscd.comm'`,
    "quillmark-browsers": `exec '${computer.installed}/quillmark-browsers' "$@" --root '${computer.root}'`,
    "source/install": `case \${1:-} in --system) ${source} "$@" --root '${computer.root}' ;; *) ${source} "$@" ;; esac`,
  };
  for (const [name, script] of Object.entries(scripts)) {
    await computer.write(join(folder, name), `#!/bin/sh\n${script}\n`);
    await chmod(join(folder, name), 0o755);
  }
  return computer.run("bash", "-c", `PATH='${folder}':$PATH; cd '${folder}/source'; ${command}`);
}
