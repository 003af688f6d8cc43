// A PDF document with a signature field, and what a signature in it covers.

import { createHash } from "node:crypto";

import { pdflibAddPlaceholder } from "@signpdf/placeholder-pdf-lib";
import { SignPdf } from "@signpdf/signpdf";
import { Signer } from "@signpdf/utils";
import { PDFDocument, StandardFonts } from "pdf-lib";

/** A document of one page with the given lines and an empty signature field, dated `time`. */
export async function makePdf(lines, time = new Date()) {
  const document = await PDFDocument.create();
  document.setTitle(lines[0]);
  document.setCreationDate(time);
  document.setModificationDate(time);
  const font = await document.embedFont(StandardFonts.Helvetica);
  const page = document.addPage();
  page.drawText(lines.join("\n"), { x: 60, y: page.getHeight() - 80, size: 14, lineHeight: 20, font });
  pdflibAddPlaceholder({
    pdfDoc: document, reason: "Approval", contactInfo: "user@example.com", name: "Quillmark", location: "Chennai",
    signingTime: time,
  });
  return Buffer.from(await document.save({ useObjectStreams: false }));
}

/** Fills the signature field with what `sign(digest)` gives for the document's SHA-256: a detached PKCS#7 as DER. */
function signPdf(pdf, sign) {
  return new SignPdf().sign(pdf, new DigestSigner(sign));
}

/**
 * A document whose digest has no zero byte, by way of its date: tokens that take the bytes to sign as text sign only what
 * is before the first one.
 */
async function makePdfWithoutZeroInDigest(lines) {
  for (let time = Date.now(); ; time += 1000) {
    const pdf = await makePdf(lines, new Date(time));
    let digest;
    await signPdf(pdf, (found) => {
      digest = found;
      return Buffer.alloc(0);
    });
    if (!digest.includes(0)) return pdf;
  }
}

/**
 * A signed document with the given lines. `sign(hash)` gives, for the SHA-256 of what is signed, a detached PKCS#7; both in
 * Base64.
 */
export async function makeSignedPdf(lines, sign) {
  const pdf = await makePdfWithoutZeroInDigest(lines);
  return signPdf(pdf, async (digest) => Buffer.from(await sign(digest.toString("base64")), "base64"));
}

class DigestSigner extends Signer {
  #sign;

  constructor(sign) {
    super();
    this.#sign = sign;
  }

  /** The library hands over what the signature covers. */
  async sign(covered) {
    return this.#sign(createHash("sha256").update(covered).digest());
  }
}
