// A real PKCS#11 token without hardware: SoftHSM in a folder of its own, seen by nobody else.

import { mkdir, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { bin } from "./build.mjs";
import { run } from "./process.mjs";

/** Where Debian's package puts the module. */
const softhsm = "/usr/lib/softhsm/libsofthsm2.so";

export class SoftToken {
  /**
   * An initialised token in `folder`. p11-kit shows SoftHSM alone to a program that runs with `env`: another module of
   * this machine could offer a token too.
   */
  static async create(folder, { pin = "1234", label = "Quillmark" } = {}) {
    const token = new SoftToken();
    Object.assign(token, { pin, label });
    const modules = join(folder, ".config/pkcs11/modules");
    await mkdir(join(folder, "tokens"), { recursive: true });
    await mkdir(modules, { recursive: true });
    await writeFile(join(folder, ".config/pkcs11/pkcs11.conf"), "user-config: only\n");
    await writeFile(join(modules, "softhsm2.module"), `module: ${softhsm}\n`);
    const config = join(folder, "softhsm2.conf");
    await writeFile(config, `directories.tokendir = ${join(folder, "tokens")}\nlog.level = ERROR\n`);
    /** What a program needs in its environment to see this token, and no other. */
    token.env = { SOFTHSM2_CONF: config, HOME: folder, XDG_CONFIG_HOME: join(folder, ".config") };
    await token.#run("softhsm2-util", "--init-token", "--free", "--label", label, "--so-pin", "00000000", "--pin", pin);
    return token;
  }

  /** Puts a certificate with its private key on the token. `id` is the CKA_ID in hex; others may have it too. */
  async addPair(certificate, id) {
    await this.#run("softhsm2-util", "--import", certificate.key, "--token", this.label, "--pin", this.pin, "--id", id,
      "--label", "key", "--force");
    await this.addCertificate(certificate.der, id);
  }

  /** Puts a certificate (a DER file) on the token. */
  async addCertificate(file, id) {
    await this.#run("pkcs11-tool", "--module", softhsm, "--token-label", this.label, "--login", "--pin", this.pin,
      "--write-object", file, "--type", "cert", "--id", id);
  }

  /** Makes the token reachable for a host that runs in `folder`; gives the environment that the host needs. */
  async install(folder) {
    await symlink(join(bin, "QMTokenDriver.so"), join(folder, "QMTokenDriver.so"));
    return this.env;
  }

  #run(command, ...args) {
    return run(command, args, { env: { ...process.env, ...this.env } });
  }
}
