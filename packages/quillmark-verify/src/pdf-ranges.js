/**
 * Where the signatures of a PDF file are, and what they are over. The bytes are searched, and not read as a reader would: whatever a
 * file says of itself, what is found here is over the whole file but a hole, and in the hole is nothing but the signature.
 */

import { VerificationError } from "./error.js";

const RANGE_NAME = "/ByteRange";
const RANGE = /^\/ByteRange\s*\[\s*(\d{1,10})\s+(\d{1,10})\s+(\d{1,10})\s+(\d{1,10})\s*\]/;

/** What a range with its blanks has at most. */
const MAX_RANGE_LENGTH = 200;

const MAX_SIGNATURES = 100;

/** Each is hashed from the file's begin. */
const MAX_HASHED_BYTES = 1024 * 1024 * 1024;

/** In hex digits; a signature with a chain and a time stamp has some 10 KiB. */
const MAX_HOLE = 2 * 1024 * 1024;

const NOT_HEX = /[^0-9A-Fa-f]/;

const malformed = (detail) => new VerificationError("MALFORMED", detail);

/** [{ byteRange, der }], in the order of what they cover; `der` is the signature with the zeros behind it. */
export function signaturesIn(file) {
  const bytes = Buffer.from(file.buffer, file.byteOffset, file.byteLength);
  const found = [];
  for (let at = bytes.indexOf(RANGE_NAME); at !== -1; at = bytes.indexOf(RANGE_NAME, at + 1)) {
    if (found.length === MAX_SIGNATURES) throw malformed("The file has more signatures than anybody gives.");
    found.push(signatureAt(bytes, at));
  }
  const hashed = found.reduce((sum, { byteRange: [, gap, , rest] }) => sum + gap + rest, 0);
  if (hashed > MAX_HASHED_BYTES) throw malformed("Its signatures are over more than a gigabyte.");
  found.sort((one, other) => endOf(one) - endOf(other));
  const isTwice = found.some((each, i) => i > 0 && endOf(each) === endOf(found[i - 1]));
  if (isTwice) throw malformed("Two signatures are over the same bytes.");
  return found;
}

const endOf = ({ byteRange: [, , behind, rest] }) => behind + rest;

function signatureAt(bytes, at) {
  const text = bytes.toString("latin1", at, at + MAX_RANGE_LENGTH);
  const byteRange = RANGE.exec(text)?.slice(1).map(Number);
  if (!byteRange) throw malformed("A signature does not say what it is over.");
  const [first, gap, behind, rest] = byteRange;
  if (first !== 0 || gap >= behind || behind - gap > MAX_HOLE || behind + rest > bytes.length)
    throw malformed("A signature is over something else than the file.");
  const isCovered = at < gap || (at > behind && at < behind + rest);
  const before = bytes.toString("latin1", Math.max(0, gap - MAX_RANGE_LENGTH), gap);
  const hole = bytes.toString("latin1", gap, behind);
  const hex = hole.slice(1, -1);
  const isSignature = isCovered && /\/Contents\s*$/.test(before) && hole.startsWith("<") && hole.endsWith(">");
  if (!isSignature || NOT_HEX.test(hex) || hex.length % 2 !== 0)
    throw malformed("A signature leaves out something else than itself.");
  return { byteRange, der: new Uint8Array(Buffer.from(hex, "hex")) };
}
