// A document signed as the extension does it, with a key of the tests in the token's place; and those who judge the file.

import { webcrypto } from "node:crypto";
import { mkdir, mkdtemp, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { commonName } from "../../../extension/src/pdf/cms.js";
import { checkFinished, factsOf, opened } from "../../../extension/src/pdf/document.js";
import { withSignatureField } from "../../../extension/src/pdf/field.js";
import { joined } from "../../../extension/src/pdf/bytes.js";
import { Authority, run } from "../../lib/kit.mjs";
import "../catalogue.mjs";

globalThis.crypto ??= webcrypto;

export { run };

const TIME = new Date("2026-11-21T12:00:00Z");

/** The facts of a document's bytes, and the file with a signature field; as the window for documents has them. */
export const facts = async (bytes) => factsOf(opened(bytes));
export const prepared = async (bytes, details) => withSignatureField(opened(bytes), details);

/** Somebody with a certificate, in a folder of the test's own. */
export class Signer {
  static async create() {
    const signer = new Signer();
    signer.folder = await mkdtemp(join(tmpdir(), "quillmark-pdf-"));
    signer.authority = await Authority.create(signer.folder);
    Object.assign(signer, await signer.authority.issue("Asha Rao"));
    return signer;
  }

  remove() {
    return rm(this.folder, { recursive: true });
  }

  async file(name, bytes) {
    await writeFile(join(this.folder, name), bytes);
    return join(this.folder, name);
  }

  /** A detached signature over the bytes (DER), as the signing program would give it. */
  async cms(covered) {
    const source = await this.file("covered", covered);
    const { stdout } = await run("openssl", ["cms", "-sign", "-binary", "-in", source, "-signer", this.pem, "-inkey", this.key,
      "-outform", "DER", "-md", "sha256", "-nosmimecap"]);
    return new Uint8Array(stdout);
  }

  /** The signed file of a document. `details` as of withSignatureField; `more(signature)` changes the signature before it goes in. */
  async sign(bytes, details = {}, more = (signature) => signature) {
    const file = opened(bytes);
    const made = await withSignatureField(file, {
      signer: commonName(this.bytes), reason: "I approve (this)", location: "Chennai", time: TIME, room: 8192, ...details,
    });
    const appended = made.insert(await more(await this.cms(made.covered)));
    await checkFinished(file, appended, this.bytes);
    return joined([bytes, appended]);
  }

  /**
   * Throws when one of the judges finds something wrong with a file of so many signatures, all of them of this signer, that was
   * made of `original`.
   */
  async judge(bytes, count, original) {
    const file = await this.file("judged.pdf", bytes);
    const report = (await run("pdfsig", ["-no-ocsp", "-nssdir", await this.#nssDatabase(), file])).stdout.toString();
    const times = (text) => report.split(text).length - 1;
    if ([times("Signature is Valid."), times("- Total document signed")].join() !== `${count},1`) throw new Error(`pdfsig: ${report}`);
    // Of a certificate that it has seen before it says "Unknown issue", so the chain of each is judged by openssl.
    if (!report.includes("Certificate is Trusted.")) throw new Error(`pdfsig: ${report}`);
    for (const { covered, signature } of signaturesIn(bytes)) await this.judgeCms(signature, covered);
    await run("qpdf", ["--check", file]);
    // Some makers' own files are not in order.
    const complaints = await this.#complaints(bytes);
    if (complaints !== (await this.#complaints(original))) throw new Error(`mutool: ${complaints}`);
  }

  async #complaints(bytes) {
    const { stderr } = await run("mutool", ["info", await this.file("looked-at.pdf", bytes)]);
    return stderr.toString();
  }

  /** Throws when openssl does not accept a detached signature (DER, zeros behind it) over the bytes, and its chain. */
  async judgeCms(signature, covered) {
    await run("openssl", ["cms", "-verify", "-binary", "-inform", "DER", "-purpose", "any", "-CAfile", this.authority.certificate,
      "-in", await this.file("judged.p7s", signature), "-content", await this.file("judged.bin", covered)]);
  }

  async #nssDatabase() {
    const folder = join(this.folder, "nss");
    if (await mkdir(folder, { recursive: true })) {
      await run("certutil", ["-N", "-d", `sql:${folder}`, "--empty-password"]);
      await run("certutil", ["-A", "-d", `sql:${folder}`, "-n", "ca", "-t", "CT,C,C", "-i", this.authority.certificate]);
    }
    return `sql:${folder}`;
  }
}

/** What each signature of a file is over, and the signature itself, as the bytes say: no PDF library has a part in it. */
export function signaturesIn(bytes) {
  const text = Buffer.from(bytes).toString("latin1");
  return [...text.matchAll(/\/ByteRange\s*\[\s*(\d+) (\d+) (\d+) (\d+)\s*\]/g)].map(([, ...range]) => {
    const [first, gap, behind, rest] = range.map(Number);
    return {
      covered: Buffer.concat([bytes.subarray(first, first + gap), bytes.subarray(behind, behind + rest)]),
      signature: Buffer.from(text.slice(gap + 1, behind - 1), "hex"),
    };
  });
}
