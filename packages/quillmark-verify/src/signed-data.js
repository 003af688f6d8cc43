/** A SignedData of one signer (RFC 5652) as the host makes it: what it says, and whether its own certificate's key says so. */

import { createHash } from "node:crypto";

import * as pkijs from "pkijs";

import { checkKey, hashOf, isSigned, signatureOfSigner } from "./algorithms.js";
import { Certificate, MAX_CERTIFICATES } from "./certificate.js";
import { octetsOf, parsed, rawOf, sameBytes } from "./der.js";
import { VerificationError } from "./error.js";

const ID = {
  data: "1.2.840.113549.1.7.1",
  signedData: "1.2.840.113549.1.7.2",
  contentType: "1.2.840.113549.1.9.3",
  messageDigest: "1.2.840.113549.1.9.4",
  signingCertificate: "1.2.840.113549.1.9.16.2.12",
  signingCertificateV2: "1.2.840.113549.1.9.16.2.47",
};

/** RFC 5652, section 5.1: version 1, and 3 for what is not data. */
const VERSIONS = [1, 3];

/** asn1js's number for the class of tags that depend on where they stand. */
const CONTEXT = 3;

const malformed = (detail) => new VerificationError("MALFORMED", detail);

export class SignedData {
  #signer;
  #algorithms;

  /** Parses DER; with `padded` zeros may stand behind it. `contentType`: what it has to hold, or to be over. */
  constructor(der, { contentType = ID.data, padded = false } = {}) {
    const info = parsed(der, pkijs.ContentInfo, { padded });
    if (info.contentType !== ID.signedData) throw malformed("It is no SignedData.");
    const ders = certificatesIn(info.content);
    const data = new pkijs.SignedData({ schema: info.content });
    const { encapContentInfo, signerInfos, digestAlgorithms } = data;
    if (signerInfos.length !== 1) throw malformed(`It has ${signerInfos.length} signers, not one.`);
    if (!VERSIONS.includes(data.version) || encapContentInfo.eContentType !== contentType)
      throw malformed("It is over another kind of content.");
    [this.#signer] = signerInfos;
    this.contentType = contentType;
    /** The bytes in it; null when the signature is detached. */
    this.content = encapContentInfo.eContent ? octetsOf(encapContentInfo.eContent) : null;
    this.hash = hashOf(this.#signer.digestAlgorithm);
    this.#algorithms = digestAlgorithms.map(hashOf);
    this.certificates = ders.map((der) => new Certificate(der));
    this.certificate = this.#ownCertificate();
    this.signature = octetsOf(this.#signer.signature);
  }

  get hasSignedAttributes() {
    return this.#signer.signedAttrs !== undefined;
  }

  /** Throws unless the signer has signed the content itself, without signed attributes. */
  checkOver(content) {
    this.#checkSignature(content);
  }

  /** Throws unless the signer has signed attributes with this digest of the content. */
  checkOverDigest(digest) {
    const type = this.#signedAttribute(ID.contentType);
    if (type?.valueBlock.toString() !== this.contentType) throw malformed("Its signed attributes say no content type, or another.");
    const given = this.#signedAttribute(ID.messageDigest);
    if (given?.idBlock.tagNumber !== 4) throw malformed("Its signed attributes have no digest.");
    if (!sameBytes(octetsOf(given), digest)) throw new VerificationError("CONTENT_MISMATCH");
    this.#checkSigningCertificate();
    // Section 5.4: what is signed is the SET of the attributes, as pkijs keeps it.
    this.#checkSignature(new Uint8Array(this.#signer.signedAttrs.encodedValue));
  }

  /** What the unsigned attributes of this type hold: the bytes of each value. */
  unsignedValues(type) {
    const attributes = this.#signer.unsignedAttrs?.attributes ?? [];
    return attributes.filter((each) => each.type === type).flatMap(({ values }) => values.map(rawOf));
  }

  digestOf(...parts) {
    const hash = createHash(this.hash);
    for (const part of parts) hash.update(part);
    return hash.digest();
  }

  #checkSignature(signed) {
    checkKey(this.certificate.publicKey);
    const algorithm = signatureOfSigner(this.#signer.signatureAlgorithm, this.hash);
    if (!this.#algorithms.includes(this.hash))
      throw new VerificationError("SIGNATURE_INVALID", "It names two different hash algorithms.");
    if (!isSigned(algorithm, signed, this.certificate.publicKey, this.signature)) throw new VerificationError("SIGNATURE_INVALID");
  }

  #ownCertificate() {
    const { sid } = this.#signer;
    if (!(sid instanceof pkijs.IssuerAndSerialNumber)) throw malformed("It names its signer in another way.");
    const [issuer, serial] = [rawOf(sid.issuer), octetsOf(sid.serialNumber)];
    const own = this.certificates.filter((each) => sameBytes(each.issuer, issuer) && sameBytes(each.serial, serial));
    if (own.length === 0 || !own.every((each) => each.isSame(own[0])))
      throw malformed("It has no certificate of its signer, or two.");
    return own[0];
  }

  /** The one value of a signed attribute (section 11); undefined when it is missing. */
  #signedAttribute(type) {
    const attributes = this.#signer.signedAttrs?.attributes ?? [];
    const [found, ...more] = attributes.filter((each) => each.type === type);
    if (more.length > 0 || (found && found.values.length !== 1))
      throw malformed(`The signed attribute ${type} stands there twice.`);
    return found?.values[0];
  }

  /** Where the signed attributes name the certificate by its hash (RFC 5035), it is this one. */
  #checkSigningCertificate() {
    for (const [type, usual] of [
      [ID.signingCertificate, "sha1"],
      [ID.signingCertificateV2, "sha256"],
    ]) {
      const value = this.#signedAttribute(type);
      if (!value) continue;
      const [first] = value.valueBlock.value[0].valueBlock.value; // of the certificates the signer's
      const parts = first.valueBlock.value;
      const isNamed = parts[0].idBlock.tagNumber === 16; // a SEQUENCE: the hash algorithm
      const hash = isNamed ? hashOf({ algorithmId: parts[0].valueBlock.value[0].valueBlock.toString() }) : usual;
      const given = octetsOf(parts[isNamed ? 1 : 0]);
      const own = createHash(hash).update(this.certificate.der).digest();
      if (!sameBytes(given, own)) throw new VerificationError("SIGNATURE_INVALID", "It is by another certificate.");
    }
  }
}

/** The certificates in a SignedData (section 5.1), as they came: pkijs would write them anew. */
function certificatesIn(signedData) {
  const isCertificates = ({ idBlock }) => idBlock.tagClass === CONTEXT && idBlock.tagNumber === 0;
  const certificates = signedData.valueBlock.value.find(isCertificates)?.valueBlock.value ?? [];
  if (certificates.length > MAX_CERTIFICATES) throw malformed("It has more certificates than a chain has.");
  if (!certificates.every(({ idBlock }) => idBlock.tagClass !== CONTEXT)) throw malformed("It has certificates of another kind.");
  return certificates.map(rawOf);
}
