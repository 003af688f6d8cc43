/** A PDF document from its bytes to the signed file. */

import { QuillmarkError } from "../../quillmark.js";
import { digestOf } from "../digest.js";
import { PdfFile } from "./file.js";
import { withSignatureField } from "./field.js";
import { partsNotShown } from "./parts.js";
import { orRefuse } from "./refusal.js";
import { checkPermitted, signaturesOf } from "./signed.js";
import { joined } from "./update.js";

/** What people are told of a document: {pages, bytes, sha256, signatures, parts}. Throws DOCUMENT_REFUSED. */
export async function factsOf(bytes) {
  const file = new PdfFile(bytes);
  checkPermitted(file);
  return {
    pages: file.pages().length,
    bytes: bytes.length,
    sha256: await digestOf("SHA-256", bytes),
    signatures: await signaturesOf(file),
    parts: orRefuse("it is damaged.", () => partsNotShown(file)),
  };
}

/** The document with a signature field: see withSignatureField. */
export async function prepared(bytes, details) {
  checkPermitted(new PdfFile(bytes));
  return withSignatureField(bytes, details);
}

/**
 * Throws when the file of these bytes and those appended is not what it has to be: its newest signature is over all of it, whole
 * and made by the key of this certificate (DER), and those before are as they were.
 */
export async function checkFinished(bytes, appended, certificate) {
  const [before, after] = [await signaturesOf(new PdfFile(bytes)), await signaturesOf(new PdfFile(joined([bytes, appended])))];
  const own = after.pop();
  const isGood = own?.isWhole === true && own.coversAll && sameBytes(own.certificate, certificate);
  const areSame = after.length === before.length && after.every(({ isWhole }, i) => isWhole === before[i].isWhole);
  if (!isGood || !areSame) throw new QuillmarkError("SIGNATURE_INVALID");
}

const sameBytes = (one, other) => one?.length === other.length && other.every((byte, i) => byte === one[i]);
