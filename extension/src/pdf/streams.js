/** The content of the streams that hold objects and cross-references. */

import { PDFArray, PDFDict, PDFName, PDFNumber } from "../../libraries/pdf-lib.js";
import { Unzlib } from "../../libraries/fflate.js";
import { MAX_PDF_STREAM_BYTES } from "../limits.js";
import { joined } from "./bytes.js";
import { refusal } from "./refusal.js";

const name = (text) => PDFName.of(text);

/** The stream's bytes as they were before they were compressed. Throws for any compression but the one that is used here. */
export function inflated(stream, file) {
  const one = (key) => {
    const value = file.member(stream.dict, key);
    return value instanceof PDFArray ? (value.size() === 1 ? file.get(value.get(0)) : null) : value;
  };
  const filter = one("Filter");
  if (filter === undefined) return stream.contents;
  if (filter !== name("FlateDecode")) throw refusal("refusal_packing");
  return unpredicted(unzipped(stream.contents), one("DecodeParms"));
}

function unzipped(bytes) {
  const pieces = [];
  let length = 0;
  const unzlib = new Unzlib((piece) => {
    length += piece.length;
    if (length > MAX_PDF_STREAM_BYTES) throw refusal("refusal_large_parts");
    pieces.push(piece);
  });
  // In small pieces, so that the limit is seen before the memory is used.
  for (let at = 0; at < bytes.length; at += 4096) unzlib.push(bytes.subarray(at, at + 4096), at + 4096 >= bytes.length);
  return joined(pieces);
}

// ISO 32000-1, 7.4.4.4: each row begins with the number of a PNG filter.
function unpredicted(bytes, parameters) {
  const number = (key, missing) => {
    const value = parameters instanceof PDFDict ? parameters.get(name(key)) : undefined;
    return value instanceof PDFNumber ? value.asNumber() : missing;
  };
  if (number("Predictor", 1) === 1) return bytes;
  if (number("Predictor", 1) < 10) throw refusal("refusal_packing");
  const perPixel = Math.max(1, (number("Colors", 1) * number("BitsPerComponent", 8)) >> 3);
  const row = Math.ceil((number("Columns", 1) * number("Colors", 1) * number("BitsPerComponent", 8)) / 8);
  const rows = Math.ceil(bytes.length / (row + 1));
  const result = new Uint8Array(rows * row);
  for (let y = 0; y < rows; y++) {
    const filter = bytes[y * (row + 1)];
    const given = bytes.subarray(y * (row + 1) + 1, (y + 1) * (row + 1));
    given.forEach((byte, x) => {
      const at = y * row + x;
      const left = x >= perPixel ? result[at - perPixel] : 0;
      const above = y > 0 ? result[at - row] : 0;
      const corner = x >= perPixel && y > 0 ? result[at - row - perPixel] : 0;
      result[at] = byte + [0, left, above, (left + above) >> 1, paeth(left, above, corner)][filter];
    });
  }
  return result;
}

// PNG, 9.4
function paeth(left, above, corner) {
  const estimate = left + above - corner;
  const distances = [left, above, corner].map((each) => Math.abs(estimate - each));
  return [left, above, corner][distances.indexOf(Math.min(...distances))];
}
