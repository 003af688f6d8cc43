/** The sizes of a document's pages. */

import { PDFArray, PDFNumber } from "../../libraries/pdf-lib.js";
import { refusal } from "./refusal.js";

/** The sides that a page can have, in points: a page that is thinner cannot be seen, and a longer one no reader has to show. */
const LEAST_SIDE = 3;
const LONGEST_SIDE = 14_400;

// What readers take for a page that does not say its size.
const LETTER = [0, 0, 612, 792];

/** Throws DOCUMENT_REFUSED for a document with a page that nobody can see, or beside which others cannot be seen. */
export function checkShapes(file) {
  for (const [i, page] of file.pages.entries()) {
    const media = boxOf(file, page, "MediaBox") ?? LETTER;
    const crop = boxOf(file, page, "CropBox") ?? media;
    const shown = media.map((value, at) => (at < 2 ? Math.max : Math.min)(value, crop[at]));
    for (const [left, bottom, right, top] of [media, shown]) {
      for (const side of [right - left, top - bottom]) {
        if (!(side >= LEAST_SIDE)) throw refusal("refusal_page_thin", i + 1);
        if (side > LONGEST_SIDE) throw refusal("refusal_page_large", i + 1);
      }
    }
  }
}

// The corners of a box may stand in any order (ISO 32000-1, 7.9.5).
function boxOf(file, page, key) {
  const box = file.inherited(page, key);
  if (box === undefined) return undefined;
  const numbers = box instanceof PDFArray ? box.asArray().map((each) => file.get(each)) : [];
  if (numbers.length !== 4 || !numbers.every((each) => each instanceof PDFNumber)) return [NaN, NaN, NaN, NaN];
  const [x1, y1, x2, y2] = numbers.map((each) => each.asNumber());
  return [Math.min(x1, x2), Math.min(y1, y2), Math.max(x1, x2), Math.max(y1, y2)];
}
