/** One certificate (RFC 5280), as strict as can be: what is not understood does not pass. */

import { createHash, X509Certificate } from "node:crypto";

import * as pkijs from "pkijs";

import { checkKey, signatureOf } from "./algorithms.js";
import { elementOf, octetsOf, parsed, rawOf, sameBytes } from "./der.js";
import { VerificationError } from "./error.js";

const ID = {
  commonName: "2.5.4.3",
  organization: "2.5.4.10",
  emailAddress: "1.2.840.113549.1.9.1",
  keyUsage: "2.5.29.15",
  subjectAltName: "2.5.29.17",
  basicConstraints: "2.5.29.19",
  nameConstraints: "2.5.29.30",
  distributionPoints: "2.5.29.31",
  policies: "2.5.29.32",
  extendedKeyUsage: "2.5.29.37",
  information: "1.3.6.1.5.5.7.1.1",
  ocsp: "1.3.6.1.5.5.7.48.1",
};

/** The extensions that may be critical: these are understood here. No policy is asked for, so those named do not matter. */
const UNDERSTOOD = [ID.keyUsage, ID.subjectAltName, ID.basicConstraints, ID.distributionPoints, ID.policies, ID.extendedKeyUsage];

/** The largest are some KiB. */
export const MAX_CERTIFICATE_BYTES = 64 * 1024;

/** So many may come with a signature: the signer's, and a chain. */
export const MAX_CERTIFICATES = 20;

const RFC822_NAME = 1;
const URI = 6;
const VERSION_3 = 2;

/** RFC 5280, section 4.2.1.3: the bits of the first byte. */
const USAGES = { digitalSignature: 0x80, nonRepudiation: 0x40, keyCertSign: 0x04, cRLSign: 0x02 };

export class Certificate {
  #pki;
  #x509;
  #extensions = new Map();

  /** Parses DER; throws MALFORMED. */
  constructor(der) {
    this.der = new Uint8Array(der);
    this.#pki = parsed(this.der, pkijs.Certificate);
    this.#x509 = new X509Certificate(this.der);
    // Node looks for PEM first, in the midst of DER, too.
    if (!sameBytes(this.#x509.raw, this.der)) throw new VerificationError("MALFORMED", "A certificate has another one in it.");
    this.subject = rawOf(this.#pki.subject);
    this.issuer = rawOf(this.#pki.issuer);
    this.serial = octetsOf(this.#pki.serialNumber);
    this.notBefore = this.#pki.notBefore.value;
    this.notAfter = this.#pki.notAfter.value;
    this.publicKey = this.#x509.publicKey;
    for (const extension of this.#pki.extensions ?? []) {
      if (this.#extensions.has(extension.extnID)) throw new VerificationError("MALFORMED", "A certificate has an extension twice.");
      this.#extensions.set(extension.extnID, { value: valueOf(extension), isCritical: extension.critical });
    }
  }

  isSame(other) {
    return sameBytes(this.der, other.der);
  }

  /** Whether its issuer has this certificate's name. */
  isNamedAfter(issuer) {
    return sameBytes(this.issuer, issuer.subject);
  }

  /** Whether this certificate's key has signed it. */
  isSignedBy(issuer) {
    try {
      return this.#x509.verify(issuer.publicKey);
    } catch {
      return false; // a kind of key that does not fit
    }
  }

  /** Throws where anything in the certificate is weak or not understood, or its time is not `at`. */
  check(at, { isRoot = false } = {}) {
    if (!(at >= this.notBefore)) throw new VerificationError("CERTIFICATE_NOT_YET_VALID", this.#name());
    if (!(at <= this.notAfter)) throw new VerificationError("CERTIFICATE_EXPIRED", this.#name());
    checkKey(this.publicKey);
    // Nothing depends on how a root has signed itself.
    if (!isRoot) signatureOf(this.#pki.signatureAlgorithm);
    if (this.#pki.version !== VERSION_3) throw this.#unsuitable("is not of version 3");
    // To leave these out would be to trust more than the authority has said.
    if (this.#extensions.has(ID.nameConstraints)) throw this.#unsuitable("has name constraints, which are not supported");
    const unknown = [...this.#extensions].find(([id, { isCritical }]) => isCritical && !UNDERSTOOD.includes(id));
    if (unknown) throw this.#unsuitable(`has the critical extension ${unknown[0]}, which is unknown`);
  }

  /** Throws unless it may issue certificates, with so many authorities below it. */
  checkAuthority(below) {
    const { cA, pathLenConstraint } = this.#value(ID.basicConstraints) ?? {};
    if (cA !== true) throw this.#unsuitable("is not an authority's");
    if (!this.mayDo("keyCertSign")) throw this.#unsuitable("is not for issuing certificates");
    if (pathLenConstraint !== undefined && !(below <= Number(pathLenConstraint)))
      throw this.#unsuitable("does not allow so long a chain");
  }

  /** Throws unless a person may sign with it. */
  checkSigner(purposes) {
    const usage = this.#usage();
    if (usage === null || (usage & (USAGES.digitalSignature | USAGES.nonRepudiation)) === 0)
      throw this.#unsuitable("is not for signing");
    if (this.#value(ID.basicConstraints)?.cA) throw this.#unsuitable("is an authority's");
    const own = this.purposes();
    if (own !== null && !own.some((each) => purposes.includes(each))) throw this.#unsuitable("is for other purposes");
  }

  /** Whether the key usage allows this; a certificate without one allows all. */
  mayDo(what) {
    const usage = this.#usage();
    return usage === null || (usage & USAGES[what]) !== 0;
  }

  /** The extended key usages, as object identifiers; null when it has none, and is for everything. */
  purposes() {
    return this.#value(ID.extendedKeyUsage)?.keyPurposes ?? null;
  }

  /** Whether it is for this purpose alone, and says so critically. */
  isOnlyFor(purpose) {
    return this.#extensions.get(ID.extendedKeyUsage)?.isCritical === true && this.purposes().join() === purpose;
  }

  get isAuthority() {
    return this.#value(ID.basicConstraints)?.cA === true;
  }

  /** The bits of the public key, of which OCSP takes the hash. */
  get keyBits() {
    return octetsOf(this.#pki.subjectPublicKeyInfo.subjectPublicKey);
  }

  /** Where its revocation can be asked for: { ocsp: [address], crl: [address] }. */
  get addresses() {
    const names = (points) =>
      points.flatMap(({ distributionPoint }) => (Array.isArray(distributionPoint) ? distributionPoint : []));
    const locations = (this.#value(ID.information)?.accessDescriptions ?? [])
      .filter(({ accessMethod }) => accessMethod === ID.ocsp)
      .map(({ accessLocation }) => accessLocation);
    const addressesIn = (list) => list.filter(({ type }) => type === URI).map(({ value }) => value);
    return { ocsp: addressesIn(locations), crl: addressesIn(names(this.#value(ID.distributionPoints)?.distributionPoints ?? [])) };
  }

  /** Whom it names, for the caller. */
  describe() {
    const alternative = (this.#value(ID.subjectAltName)?.altNames ?? []).find(({ type }) => type === RFC822_NAME)?.value;
    return {
      name: this.#inSubject(ID.commonName),
      email: alternative ?? this.#inSubject(ID.emailAddress),
      organization: this.#inSubject(ID.organization),
      serial: Buffer.from(this.serial).toString("hex").toUpperCase(),
      thumbprint: createHash("sha1").update(this.der).digest("hex").toUpperCase(),
      thumbprint256: createHash("sha256").update(this.der).digest("hex").toUpperCase(),
      validFrom: this.notBefore,
      validTo: this.notAfter,
      certificate: this.der,
    };
  }

  #inSubject(id) {
    const text = this.#pki.subject.typesAndValues.find(({ type }) => type === id)?.value.valueBlock.value;
    return typeof text === "string" ? text : "";
  }

  #name() {
    return `that of ${JSON.stringify(this.#inSubject(ID.commonName))}`;
  }

  #value(id) {
    return this.#extensions.get(id)?.value;
  }

  #usage() {
    const usage = this.#value(ID.keyUsage);
    return usage === undefined ? null : (usage.valueBlock.valueHexView[0] ?? 0);
  }

  #unsuitable(what) {
    return new VerificationError("CERTIFICATE_UNSUITABLE", `${this.#name()} ${what}.`);
  }
}

/** What an extension holds, where it is one that is read here. */
function valueOf(extension) {
  if (!Object.values(ID).includes(extension.extnID)) return undefined;
  elementOf(octetsOf(extension.extnValue));
  const value = extension.parsedValue;
  if (!value || value.parsingError) throw new VerificationError("MALFORMED", `the certificate's extension ${extension.extnID}`);
  return value;
}
