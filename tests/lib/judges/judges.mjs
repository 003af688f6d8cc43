// Those who say whether a signature is good: openssl and pdfsig, never the code under test.

import { mkdir, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../process.mjs";

export class Judges {
  #folder;
  #count = 0;

  /** Works in `folder`, and trusts the CA certificate in the file `caPem`. */
  constructor(folder, caPem) {
    this.#folder = folder;
    this.caPem = caPem;
  }

  /**
   * Checks a SignedData and the chain of its signer. Gives the content. `content` is the signed document when the
   * signature is detached; `checkTime` false lets expired certificates pass.
   */
  async cms(der, { content = null, checkTime = true } = {}) {
    const options = ["-binary"];
    if (content !== null) options.push("-content", await this.#file(content));
    if (!checkTime) options.push("-no_check_time");
    const { stdout } = await run("openssl", ["cms", "-verify", "-inform", "DER", "-purpose", "any", "-CAfile", this.caPem,
      "-in", await this.#file(der), ...options]);
    return stdout;
  }

  /** Checks an RSA PKCS#1 v1.5 signature over the hash of `data`, by the key of the certificate. */
  async rsa(signature, data, certificatePem, hash = "sha256") {
    await run("openssl", ["dgst", `-${hash}`, "-verify", await this.#publicKey(certificatePem), "-signature",
      await this.#file(signature), await this.#file(data)]);
  }

  /** What the PKCS#1 v1.5 padding of a signature holds: the DigestInfo, or whatever the key was given to sign. */
  async recover(signature, certificatePem) {
    const { stdout } = await run("openssl", ["pkeyutl", "-verifyrecover", "-pubin", "-inkey",
      await this.#publicKey(certificatePem), "-in", await this.#file(signature)]);
    return stdout;
  }

  /** Checks the one signature of a PDF and its signer's chain with pdfsig. Gives pdfsig's report. */
  async pdf(bytes) {
    const file = await this.#file(bytes);
    const { stdout } = await run("pdfsig", ["-no-ocsp", "-nssdir", await this.#nssDatabase(), file]);
    const report = stdout.toString();
    for (const needed of ["Total document signed", "Signature is Valid.", "Certificate is Trusted."]) {
      if (!report.includes(needed)) throw new Error(`pdfsig does not say "${needed}" of ${file}:\n${report}`);
    }
    return report;
  }

  /** A certificate database of pdfsig's library that trusts our CA alone. */
  async #nssDatabase() {
    const folder = join(this.#folder, "nss");
    const database = `sql:${folder}`;
    if (await mkdir(folder, { recursive: true })) {
      await run("certutil", ["-N", "-d", database, "--empty-password"]);
      await run("certutil", ["-A", "-d", database, "-n", "ca", "-t", "CT,C,C", "-i", this.caPem]);
    }
    return database;
  }

  /** The public key of a certificate as a PEM file. */
  async #publicKey(certificatePem) {
    const { stdout } = await run("openssl", ["x509", "-in", certificatePem, "-noout", "-pubkey"]);
    return this.#file(stdout);
  }

  async #file(bytes) {
    const path = join(this.#folder, `judged-${++this.#count}`);
    await writeFile(path, bytes);
    return path;
  }
}

/** What Base64 says. */
export const bytesOf = (base64) => Buffer.from(base64, "base64");
