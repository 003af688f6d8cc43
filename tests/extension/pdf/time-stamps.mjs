// A time-stamping authority of the tests, by openssl ts.

import { join } from "node:path";
import { readFile } from "node:fs/promises";

import { run } from "./sign.mjs";

export class TimeStampAuthority {
  /** `signer`: whose folder it works in, and whose authority certifies it. */
  static async create(signer) {
    const authority = new TimeStampAuthority();
    authority.signer = signer;
    const file = (name) => join(signer.folder, name);
    const { key, certificate } = signer.authority;
    await run("openssl", ["req", "-new", "-newkey", "rsa:2048", "-noenc", "-keyout", file("tsa.key"), "-subj", "/CN=Test TSA", "-out", file("tsa.csr")]);
    const extensions = await signer.file("tsa.ext", "extendedKeyUsage = critical,timeStamping\n");
    await run("openssl", ["x509", "-req", "-in", file("tsa.csr"), "-CA", certificate, "-CAkey", key, "-CAcreateserial", "-days", "3000",
      "-extfile", extensions, "-out", file("tsa.pem")]);
    authority.config = await signer.file("tsa.cnf", [
      "[tsa]\ndefault_tsa = one\n[one]", `serial = ${file("tsa.serial")}`, "crypto_device = builtin",
      `signer_cert = ${file("tsa.pem")}`, `signer_key = ${file("tsa.key")}`, `certs = ${certificate}`,
      "signer_digest = sha256\ndefault_policy = 1.2.3.4.1\ndigests = sha256\nordering = yes\ntsa_name = yes\ness_cert_id_chain = no",
    ].join("\n"));
    return authority;
  }

  /** The answer (RFC 3161, DER) to a request. */
  async answer(request) {
    const out = join(this.signer.folder, "answer.tsr");
    const query = await this.signer.file("request.tsq", request);
    await run("openssl", ["ts", "-reply", "-config", this.config, "-queryfile", query, "-out", out]).catch(() => {});
    return new Uint8Array(await readFile(out));
  }

  /** Throws when openssl ts does not accept the time stamp in a signature (DER, zeros behind it) for it. */
  async judge(signature) {
    const file = await this.signer.file("stamped.p7s", signature);
    const places = (await run("openssl", ["asn1parse", "-inform", "DER", "-in", file])).stdout.toString().split("\n");
    const place = (line) => ({ at: Number(/^\s*(\d+):/.exec(line)[1]), head: Number(/hl=(\d+)/.exec(line)[1]), length: Number(/ l=\s*(\d+)/.exec(line)[1]) });
    const attribute = places.findIndex((line) => line.includes("id-smime-aa-timeStampToken"));
    const token = place(places[attribute + 2]);
    const value = place(places.slice(0, attribute).filter((line) => line.includes("OCTET STRING")).at(-1));
    const cut = ({ at, head, length }, withHead) => signature.subarray(withHead ? at : at + head, at + head + length);
    await run("openssl", ["ts", "-verify", "-token_in", "-in", await this.signer.file("token.der", cut(token, true)),
      "-data", await this.signer.file("value.bin", cut(value, false)), "-CAfile", this.signer.authority.certificate]);
  }
}
