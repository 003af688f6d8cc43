/**
 * A signature field in a PDF document, and the signature in it. The document is extended, not rewritten, so that
 * signatures that it has already stay valid.
 */

import { PDFDocument, PDFHexString, PDFInvalidObject, PDFName, PDFString, StandardFonts } from "./pdf-lib.js";

// Room for the PKCS#7 structure: the signature and the signer's certificate.
const SIGNATURE_BYTES = 16 * 1024;

// Stands for the three numbers of the byte range that are known only when the file is complete.
const UNKNOWN = 9_999_999_999;
const BYTE_RANGE = `/ByteRange [ 0 ${UNKNOWN} ${UNKNOWN} ${UNKNOWN} ]`;

// PDF 32000-1, 12.7.2: the document has a signature, and may only be extended.
const SIGNATURES_EXIST_APPEND_ONLY = 3;
const PRINT = 4;

/**
 * The document with an empty signature field: the whole file, the bytes of it that the signature covers, and
 * `insert(pkcs7)`, which gives the signed file for a PKCS#7 structure in Base64. Each call makes a different file.
 */
export async function prepareSignature(pdf, { reason, time = new Date() }) {
  const document = await PDFDocument.load(pdf, { forIncrementalUpdate: true, updateMetadata: false });
  addSignatureField(document, { reason, time });
  const file = await document.save({ updateFieldAppearances: false });

  const rangeStart = lastIndexOf(file, BYTE_RANGE);
  const contentsStart = file.indexOf("<".charCodeAt(0), file.indexOf("C".charCodeAt(0), rangeStart + BYTE_RANGE.length));
  const contentsEnd = contentsStart + 2 * SIGNATURE_BYTES + 2;
  const range = `/ByteRange [ 0 ${contentsStart} ${contentsEnd} ${file.length - contentsEnd} ]`;
  write(file, rangeStart, range.padEnd(BYTE_RANGE.length));

  const covered = new Uint8Array(file.length - (contentsEnd - contentsStart));
  covered.set(file.subarray(0, contentsStart));
  covered.set(file.subarray(contentsEnd), contentsStart);

  const insert = (pkcs7) => {
    const hex = [...atob(pkcs7)].map((byte) => byte.charCodeAt(0).toString(16).padStart(2, "0")).join("");
    if (hex.length > 2 * SIGNATURE_BYTES) throw new Error("The signature is longer than the room for it.");
    const signed = file.slice();
    write(signed, contentsStart + 1, hex);
    return signed;
  };
  return { file, covered, insert };
}

function addSignatureField(document, { reason, time }) {
  const { context, catalog } = document;
  const page = document.getPage(0);
  const field = context.register(
    context.obj({
      Type: "Annot",
      Subtype: "Widget",
      FT: "Sig",
      T: PDFString.of(`Signature ${crypto.randomUUID()}`),
      Rect: [0, 0, 0, 0],
      F: PRINT,
      P: page.ref,
      V: context.register(signatureDictionary(context, { reason, time })),
    }),
  );
  page.node.addAnnot(field);
  const form = catalog.getOrCreateAcroForm();
  form.dict.set(PDFName.of("SigFlags"), context.obj(SIGNATURES_EXIST_APPEND_ONLY));
  form.addField(field);
}

// As bytes of its own, so that the library does not compress it: its place in the file has to be known.
function signatureDictionary(context, { reason, time }) {
  const dictionary = context.obj({
    Type: "Sig",
    Filter: "Adobe.PPKLite",
    SubFilter: "adbe.pkcs7.detached",
    ByteRange: [0, UNKNOWN, UNKNOWN, UNKNOWN],
    Contents: PDFHexString.of("00".repeat(SIGNATURE_BYTES)),
    Reason: PDFHexString.fromText(reason),
    M: PDFString.fromDate(time),
  });
  const bytes = new Uint8Array(dictionary.sizeInBytes());
  dictionary.copyBytesInto(bytes, 0);
  return PDFInvalidObject.of(bytes);
}

/** A document of one page with these lines, for those who have none at hand. */
export async function sampleDocument(lines) {
  const document = await PDFDocument.create();
  const font = await document.embedFont(StandardFonts.Helvetica);
  const page = document.addPage([595, 842]);
  page.drawText(lines.join("\n"), { x: 60, y: 760, size: 14, lineHeight: 22, font });
  return document.save();
}

function write(bytes, start, ascii) {
  bytes.set(new TextEncoder().encode(ascii), start);
}

function lastIndexOf(bytes, ascii) {
  const wanted = new TextEncoder().encode(ascii);
  for (let start = bytes.length - wanted.length; start >= 0; start--) {
    if (wanted.every((byte, i) => bytes[start + i] === byte)) return start;
  }
  throw new Error("The PDF library did not write the signature as expected.");
}
