/** Which algorithms and keys count as strong. All others are refused. */

import { constants, verify } from "node:crypto";

import { VerificationError } from "./error.js";

const HASHES = new Map([
  ["2.16.840.1.101.3.4.2.1", "sha256"],
  ["2.16.840.1.101.3.4.2.2", "sha384"],
  ["2.16.840.1.101.3.4.2.3", "sha512"],
]);

const SIGNATURES = new Map([
  ["1.2.840.113549.1.1.11", { hash: "sha256", keyType: "rsa" }],
  ["1.2.840.113549.1.1.12", { hash: "sha384", keyType: "rsa" }],
  ["1.2.840.113549.1.1.13", { hash: "sha512", keyType: "rsa" }],
  ["1.2.840.10045.4.3.2", { hash: "sha256", keyType: "ec" }],
  ["1.2.840.10045.4.3.3", { hash: "sha384", keyType: "ec" }],
  ["1.2.840.10045.4.3.4", { hash: "sha512", keyType: "ec" }],
]);

/** What CMS has in the signature algorithm's place beside those: the digest algorithm says the hash (RFC 3370, section 3.2). */
const RSA_ENCRYPTION = "1.2.840.113549.1.1.1";

const CURVES = ["prime256v1", "secp384r1", "secp521r1"];
const MIN_RSA_BITS = 2048;

/** One signature by a key of this size takes some milliseconds to verify; it grows with the square. */
const MAX_RSA_BITS = 8192;

const NAMES = new Map([
  ["SHA-256", "sha256"],
  ["SHA-384", "sha384"],
  ["SHA-512", "sha512"],
]);
export const HASH_LENGTHS = { sha256: 32, sha384: 48, sha512: 64 };

const weak = (detail) => new VerificationError("WEAK_ALGORITHM", detail);

/** Node's name for a hash as the page library names it: "SHA-256", "SHA256" and the like. */
export function hashNamed(name) {
  const found = NAMES.get(String(name).replace(/^SHA(?=\d)/, "SHA-"));
  if (!found) throw weak(`the hash algorithm ${String(name).slice(0, 40)}`);
  return found;
}

/** The page library's name for a hash of Node's. */
export const nameOfHash = (hash) => [...NAMES].find(([, each]) => each === hash)[0];

/** Node's name for the hash of this AlgorithmIdentifier. */
export function hashOf({ algorithmId }) {
  const found = HASHES.get(algorithmId);
  if (!found) throw weak(`the hash algorithm ${algorithmId}`);
  return found;
}

/** { hash, keyType } of the AlgorithmIdentifier of a signature. */
export function signatureOf({ algorithmId }) {
  const found = SIGNATURES.get(algorithmId);
  if (!found) throw weak(`the signature algorithm ${algorithmId}`);
  return found;
}

/** The same in a SignerInfo, where it has to fit to the digest algorithm. */
export function signatureOfSigner(algorithm, hash) {
  if (algorithm.algorithmId === RSA_ENCRYPTION) return { hash, keyType: "rsa" };
  const found = signatureOf(algorithm);
  if (found.hash !== hash) throw new VerificationError("SIGNATURE_INVALID", "It names two different hash algorithms.");
  return found;
}

/** Throws WEAK_ALGORITHM when the key is weak, or takes too long. */
export function checkKey({ asymmetricKeyType: type, asymmetricKeyDetails: details }) {
  const { modulusLength: bits, publicExponent: exponent, namedCurve } = details ?? {};
  if (type === "rsa" && bits >= MIN_RSA_BITS && bits <= MAX_RSA_BITS && exponent > 2n) return;
  if (type === "ec" && CURVES.includes(namedCurve)) return;
  throw weak(type === "rsa" ? `an RSA key of ${bits} bits` : `a key of the kind ${namedCurve ?? type}`);
}

/** Whether the key has signed the data; PKCS#1 v1.5 for RSA. */
export function isSigned({ hash, keyType }, data, key, signature) {
  if (key.asymmetricKeyType !== keyType) return false;
  return verify(hash, data, keyType === "rsa" ? { key, padding: constants.RSA_PKCS1_PADDING } : key, signature);
}
