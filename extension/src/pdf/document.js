/** A PDF document from its bytes to the signed file. */

import { QuillmarkError } from "../../quillmark.js";
import { digestOf } from "../digest.js";
import { joined, sameBytes } from "./bytes.js";
import { PdfFile } from "./file.js";
import { partsNotShown } from "./parts.js";
import { checkShapes } from "./shapes.js";
import { checkPermitted, signaturesOf } from "./signed.js";

/** The file of these bytes, which may get a signature. Throws DOCUMENT_REFUSED for any other. */
export function opened(bytes) {
  const file = new PdfFile(bytes);
  checkPermitted(file);
  checkShapes(file);
  return file;
}

/** What people are told of a document: {pages, bytes, sha256, signatures, parts}. Throws DOCUMENT_REFUSED. */
export async function factsOf(file) {
  try {
    return {
      pages: file.pages.length,
      bytes: file.bytes.length,
      sha256: await digestOf("SHA-256", file.bytes),
      signatures: await signaturesOf(file),
      parts: await partsNotShown(file),
    };
  } finally {
    // All of it was looked at. A request may have a hundred documents.
    file.forget();
  }
}

/**
 * Throws when the file with the appended bytes behind it is not what it has to be: its newest signature is over all of it, whole
 * and made by the key of this certificate (DER), and those before are as they were.
 */
export async function checkFinished(file, appended, certificate) {
  const [before, after] = [await signaturesOf(file), await signaturesOf(new PdfFile(joined([file.bytes, appended])))];
  const own = after.pop();
  const isGood = own?.isWhole === true && own.coversAll && sameBytes(own.certificate, certificate);
  const areSame = after.length === before.length && after.every(({ isWhole }, i) => isWhole === before[i].isWhole);
  if (!isGood || !areSame) throw new QuillmarkError("SIGNATURE_INVALID");
}
