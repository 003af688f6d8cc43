/** PDF signatures: a detached SignedData over the file but its own place in it, or over a digest of that. */

import { HASH_LENGTHS, hashNamed, nameOfHash } from "./algorithms.js";
import { guarded, VerificationError } from "./error.js";
import { signaturesIn } from "./pdf-ranges.js";
import { bytesOf, settingsOf } from "./settings.js";
import { SignedData } from "./signed-data.js";
import { timeStampOf } from "./time-stamp.js";
import { verdictOn } from "./verdict.js";

const MAX_PDF_BYTES = 256 * 1024 * 1024;

const MAX_SIGNATURE_BYTES = 1024 * 1024;
const MAX_HASH_BYTES = 64;

/** Verifies all signatures of a file; see index.d.ts. */
export const verifyPdf = guarded(async ({ pdf, allowAppended = false, ...options }) => {
  const settings = settingsOf(options);
  if (typeof pdf === "string") throw new VerificationError("INVALID_ARGUMENT", '"pdf" has to be bytes.');
  const file = bytesOf(pdf, "pdf", MAX_PDF_BYTES);
  const places = signaturesIn(file);
  if (places.length === 0) throw new VerificationError("NOT_SIGNED");
  const signatures = [];
  for (const { byteRange, der } of places) {
    const signed = new SignedData(der, { padded: true });
    const [first, gap, behind, rest] = byteRange;
    const digest = signed.digestOf(file.subarray(first, gap), file.subarray(behind, behind + rest));
    signatures.push({
      ...(await verdictOnDigest(signed, digest, settings)),
      byteRange,
      coversWholeFile: behind + rest === file.length,
    });
  }
  if (!allowAppended && !signatures.at(-1).coversWholeFile) throw new VerificationError("CONTENT_APPENDED");
  return { signatures };
});

/** Verifies what `signPdfHash` gave; see index.d.ts. */
export const verifyPdfHash = guarded(async ({ pkcs7, hash, hashAlgorithm, ...options }) => {
  const settings = settingsOf(options);
  const signed = new SignedData(bytesOf(pkcs7, "pkcs7", MAX_SIGNATURE_BYTES));
  const digest = bytesOf(hash, "hash", MAX_HASH_BYTES);
  if (hashAlgorithm !== undefined && hashNamed(hashAlgorithm) !== signed.hash)
    throw new VerificationError("CONTENT_MISMATCH", "It is by another hash algorithm.");
  if (digest.length !== HASH_LENGTHS[signed.hash])
    throw new VerificationError("CONTENT_MISMATCH", "The digest has another length.");
  return verdictOnDigest(signed, digest, settings);
});

async function verdictOnDigest(signed, digest, settings) {
  if (signed.content !== null || !signed.hasSignedAttributes)
    throw new VerificationError("MALFORMED", "It is the signature of something else.");
  signed.checkOverDigest(digest);
  const stamp = await timeStampOf(signed, settings);
  // With a time that can be trusted, the certificate has to hold then, and not today.
  const at = stamp?.isTrusted ? stamp.time : settings.at;
  const verdict = await verdictOn(signed.certificate, { ...settings, at }, signed.certificates);
  return { ...verdict, hashAlgorithm: nameOfHash(signed.hash), timestamp: stamp && described(stamp) };
}

const described = ({ time, isTrusted, authority, chain }) => ({
  time,
  trusted: isTrusted,
  authority: authority.describe(),
  chain: chain.map((each) => each.describe()),
});
