// A real PKCS#11 token without hardware: SoftHSM in a folder of its own, seen by nobody else.

import { randomUUID } from "node:crypto";
import { mkdir, rename, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../process.mjs";
import { p11KitHome } from "./p11-kit.mjs";

/** Where Debian's package puts the module. */
export const SOFTHSM = "/usr/lib/softhsm/libsofthsm2.so";

/** A binary identifier as cards have it, the size of a SHA-1: with zero bytes, and no UTF-8. */
export const BINARY_ID = "00ff80c3280a00d1e2f3a4b5c6d7e8f901234567";

export class SoftToken {
  #slot;
  #away;

  /**
   * An initialised token in `folder`. A program that runs with its `env` sees it, and no other token of this machine.
   */
  static async create(folder, { pin = "1234", label = "Quillmark" } = {}) {
    const token = new SoftToken();
    Object.assign(token, { pin, label });
    token.#slot = join(folder, "tokens");
    token.#away = join(folder, `pulled-${randomUUID()}`);
    await mkdir(token.#slot, { recursive: true });
    const config = join(folder, "softhsm2.conf");
    await writeFile(config, `directories.tokendir = ${token.#slot}\nlog.level = ERROR\n`);
    token.env = { SOFTHSM2_CONF: config, ...(await p11KitHome(folder, [`module: ${SOFTHSM}`])) };
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
    await this.#run("pkcs11-tool", "--module", SOFTHSM, "--token-label", this.label, "--login", "--pin", this.pin,
      "--write-object", file, "--type", "cert", "--id", id);
  }

  /** Pulls it. Another one may be made in its folder until it is back. */
  pull() {
    return rename(this.#slot, this.#away);
  }

  /** Plugs it in again. */
  plugIn() {
    return rename(this.#away, this.#slot);
  }

  #run(command, ...args) {
    return run(command, args, { env: { ...process.env, ...this.env } });
  }
}
