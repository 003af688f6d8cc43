// Keys and certificates for tokens, made by openssl.

import { readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../process.mjs";

const ORGANISATION = "Quillmark Test";

const DEFAULT_USAGE = "critical,digitalSignature,nonRepudiation";

/**
 * As users' certificates have them. pdfsig needs both: where one of them is missing it takes what its library remembers of
 * the search for it as a failure, and says "Unknown issue with Certificate" of a trusted one (seen: poppler 22.12).
 */
const USER_EXTENSIONS = "extendedKeyUsage = clientAuth,emailProtection\ncrlDistributionPoints = URI:http://crl.example/ca.crl";

/** A certification authority in a folder, and the certificates that it issues. */
export class Authority {
  constructor(folder, key, certificate) {
    this.folder = folder;
    /** Files: PEM key, PEM certificate. */
    this.key = key;
    this.certificate = certificate;
  }

  static async create(folder, { subject = subjectOf("Quillmark Test CA") } = {}) {
    const authority = new Authority(folder, join(folder, "ca.key"), join(folder, "ca.pem"));
    await makeKey(authority.key);
    const config = await authority.#file("ca.cnf", [
      "[req]\ndistinguished_name = dn\nx509_extensions = ext\n[dn]",
      "[ext]\nbasicConstraints = critical,CA:true\nkeyUsage = critical,keyCertSign,cRLSign",
      "subjectKeyIdentifier = hash",
    ]);
    await run("openssl", ["req", "-x509", "-new", "-sha256", "-utf8", "-days", "3650", "-subj", subject,
      "-config", config, "-key", authority.key, "-out", authority.certificate]);
    authority.own = await described({ key: authority.key, pem: authority.certificate, der: join(folder, "ca.der") });
    return authority;
  }

  /**
   * Issues a certificate for a new RSA key. Gives the files { key, pem, der }, the DER bytes { bytes } and { thumbprint }.
   * `name` is that of the files, and the common name unless `cn` says otherwise. `usage` and `email` null leave these out;
   * `from` and `to` as openssl ca takes them; `serial` is hex.
   */
  async issue(name, { cn = name, organisation = ORGANISATION, subject = subjectOf(cn, organisation), email = "user@example.com",
    usage = DEFAULT_USAGE, from = "20221115000000Z", to = "20491231235959Z", bits = 2048, serial = null } = {}) {
    const file = (suffix) => join(this.folder, `${name}.${suffix}`);
    const certificate = { key: file("key"), pem: file("pem"), der: file("der") };
    const config = await this.#file(`${name}.cnf`, [
      "[req]\ndistinguished_name = dn\n[dn]",
      "[ca]\ndefault_ca = one\n[one]",
      `database = ${file("index")}\nnew_certs_dir = ${this.folder}`,
      serial === null ? "rand_serial = yes" : `serial = ${await this.#file(`${name}.serial`, [serial, ""])}`,
      `certificate = ${this.certificate}\nprivate_key = ${this.key}\ndefault_md = sha256`,
      "policy = any\nunique_subject = no\nemail_in_dn = no\nx509_extensions = ext",
      "[any]\ncountryName = optional\norganizationName = optional\ncommonName = optional",
      "[ext]\nbasicConstraints = critical,CA:false\nsubjectKeyIdentifier = hash\nauthorityKeyIdentifier = keyid",
      USER_EXTENSIONS,
      usage === null ? "" : `keyUsage = ${usage}`,
      email === null ? "" : `subjectAltName = email:${email}`,
    ]);
    await writeFile(file("index"), "");
    await makeKey(certificate.key, bits);
    await run("openssl", ["req", "-new", "-utf8", "-subj", subject, "-config", config, "-key", certificate.key,
      "-out", file("csr")]);
    await run("openssl", ["ca", "-batch", "-notext", "-utf8", "-preserveDN", "-config", config, "-startdate", from,
      "-enddate", to, "-in", file("csr"), "-out", certificate.pem]);
    return described(certificate);
  }

  /** A revocation list (DER) of this authority that revokes nobody. */
  async revocationList() {
    const config = await this.#file("crl.cnf", [
      `[ca]\ndefault_ca = one\n[one]\ndatabase = ${await this.#file("crl.index", [""])}`,
      `certificate = ${this.certificate}\nprivate_key = ${this.key}\ndefault_md = sha256\ndefault_crl_days = 30`,
    ]);
    const { stdout: pem } = await run("openssl", ["ca", "-gencrl", "-config", config]);
    return (await run("openssl", ["crl", "-outform", "DER"], { input: pem })).stdout;
  }

  /** A certificate for a public key (a DER file) whose private key is elsewhere: as from issue, without a key. */
  async certify(name, publicKey) {
    const certificate = { pem: join(this.folder, `${name}.pem`), der: join(this.folder, `${name}.der`) };
    const extensions = await this.#file(`${name}.ext`, ["basicConstraints = critical,CA:false", USER_EXTENSIONS,
      `keyUsage = ${DEFAULT_USAGE}`]);
    const pemKey = join(this.folder, `${name}.public`);
    await run("openssl", ["pkey", "-pubin", "-inform", "DER", "-in", publicKey, "-out", pemKey]);
    await run("openssl", ["x509", "-new", "-force_pubkey", pemKey, "-subj", subjectOf(name), "-days", "30",
      "-CA", this.certificate, "-CAkey", this.key, "-extfile", extensions, "-out", certificate.pem]);
    return described(certificate);
  }

  async #file(name, lines) {
    const path = join(this.folder, name);
    await writeFile(path, lines.join("\n"));
    return path;
  }
}

/** The subject as openssl takes it, where a slash begins a part and a plus joins two. */
function subjectOf(cn, organisation = ORGANISATION) {
  const [o, name] = [organisation, cn].map((part) => part.replaceAll(/[\\/+]/g, "\\$&"));
  return `/C=IN/O=${o}/CN=${name}`;
}

/** Adds to a certificate, of which there is the PEM file, the DER file, its bytes and its SHA-1 in upper-case hex digits. */
export async function described(certificate) {
  const read = async (...options) => (await run("openssl", ["x509", "-in", certificate.pem, ...options])).stdout.toString();
  await read("-outform", "DER", "-out", certificate.der);
  const thumbprint = (await read("-noout", "-fingerprint", "-sha1")).replace(/^.*=|:|\s/g, "");
  return { ...certificate, bytes: await readFile(certificate.der), thumbprint };
}

/** Writes a new RSA key as PEM (PKCS#8). */
export async function makeKey(file, bits = 2048) {
  await run("openssl", ["genpkey", "-algorithm", "RSA", "-pkeyopt", `rsa_keygen_bits:${bits}`, "-out", file]);
}
