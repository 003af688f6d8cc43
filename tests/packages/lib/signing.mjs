// Signatures as the host makes them, element by element, with anything in them replaced by something else.

import { createHash, sign } from "node:crypto";

import { der, oid } from "../../lib/kit.mjs";
import { authority, certificate, context, hashAlgorithm, integer, octets, rsaEncryption, sequence, set } from "./issuing.mjs";

const DATA = "1.2.840.113549.1.7.1";
const SIGNED_DATA = "1.2.840.113549.1.7.2";
const CONTENT_TYPE = "1.2.840.113549.1.9.3";
const MESSAGE_DIGEST = "1.2.840.113549.1.9.4";

/** Root, authority, and a person's certificate; what most tests need. */
export function people() {
  const root = authority("Root");
  const issuing = authority("Issuing", { issuer: root });
  return { root, issuing, asha: certificate("Asha Rao", { issuer: issuing }) };
}

export const digestOf = (bytes, hash = "sha256") => createHash(hash).update(bytes).digest();

export const attribute = (type, ...values) => sequence(oid(type), set(...values));
export const contentType = (type = DATA) => attribute(CONTENT_TYPE, oid(type));
export const messageDigest = (digest) => attribute(MESSAGE_DIGEST, octets(digest));

/**
 * A SignedData (DER). `content` null: detached. `attributes` null: the signature is over `signed`. Everything that a test may want
 * to be wrong has a name of its own.
 */
export function signedData(
  signer,
  {
    content = null,
    attributes = null,
    signed = content,
    hash = "sha256",
    signedHash = hash,
    listedHash = hash,
    type = DATA,
    certificates = [signer],
    algorithm = rsaEncryption,
    key = signer.privateKey,
    contentElement = octets,
    version = 1,
    unsigned = [],
    signers = (one) => [one],
  } = {},
) {
  const toSign = attributes === null ? signed : set(...attributes);
  const signature = sign(signedHash, toSign, key);
  const one = sequence(
    integer([1]),
    sequence(signer.issuerName, integer(signer.serial)),
    hashAlgorithm(hash),
    ...(attributes === null ? [] : [context(0, ...attributes)]),
    algorithm,
    octets(signature),
    ...(unsigned.length > 0 ? [context(1, ...unsigned.map((each) => (typeof each === "function" ? each(signature) : each)))] : []),
  );
  return sequence(
    oid(SIGNED_DATA),
    context(
      0,
      sequence(
        integer([version]),
        set(hashAlgorithm(listedHash)),
        sequence(oid(type), ...(content === null ? [] : [context(0, contentElement(content))])),
        context(0, ...certificates.map((each) => each.der)),
        set(...signers(one)),
      ),
    ),
  );
}

/** As `signGstReturn` gives it. */
export const gstReturn = (signer, text, more = {}) => signedData(signer, { content: Buffer.from(text), ...more });

/** As `signPdfHash` gives it. */
export function pdfSignature(signer, digest, { attributes = [contentType(), messageDigest(digest)], ...more } = {}) {
  return signedData(signer, { attributes, ...more });
}

const HOLE = 16_000;

/** A PDF file, of which only a signature's dictionary is looked at, signed once. `change` gives the text another form before. */
export function signedPdf(signer, { text = "%PDF-1.7\n1 0 obj\n<< /Type /Catalog >>\nendobj\n", ...more } = {}) {
  return signAgain(signer, Buffer.from(text), more);
}

/** The file with one more signature behind it. */
export function signAgain(
  signer,
  file,
  { hash = "sha256", hole = HOLE, rangeOf = (range) => range, entry = "/Contents ", ...more } = {},
) {
  const head = Buffer.from("\n2 0 obj\n<< /Type /Sig /SubFilter /adbe.pkcs7.detached /ByteRange ");
  const width = "[0 0000000000 0000000000 0000000000]".length;
  const gap = file.length + head.length + width + ` ${entry}`.length;
  const behind = gap + hole + 2;
  const tail = Buffer.from(" >>\nendobj\n%%EOF\n");
  const range = `[${rangeOf([0, gap, behind, tail.length]).join(" ")}]`.padEnd(width);
  const front = Buffer.concat([file, head, Buffer.from(`${range} ${entry}`)]);
  const signature = pdfSignature(signer, digestOf(Buffer.concat([front, tail]), hash), { hash, ...more });
  return Buffer.concat([front, Buffer.from(`<${signature.toString("hex").padEnd(hole, "0")}>`), tail]);
}

export { der };
