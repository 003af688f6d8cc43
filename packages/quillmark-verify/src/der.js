/** DER, looked through before a library parses it: neither depth nor lengths of an element surprise anybody then. */

import { fromBER } from "asn1js";

import { VerificationError } from "./error.js";

/** The structures here nest some twenty deep. The library's parser calls itself for each level. */
const MAX_DEPTH = 64;

/** The largest revocation lists of public authorities have so many, in some megabytes. */
const MAX_ELEMENTS = 2_000_000;

const refuse = (detail) => new VerificationError("MALFORMED", detail);

/**
 * Tag, begin and end of the element at a place that is to end before `limit` (X.690, sections 8.1 and 10.1). Its length is
 * definite and as short as can be.
 */
function headAt(bytes, at, limit) {
  const tag = bytes[at];
  const first = bytes[at + 1];
  if (at + 2 > limit || (tag & 0x1f) === 0x1f) throw refuse("An element is cut off, or of an unknown kind.");
  const count = first < 0x80 ? 0 : first & 0x7f;
  if (first === 0x80 || count > 4 || at + 2 + count > limit) throw refuse("The length of an element is not DER.");
  const length = count === 0 ? first : bytes.subarray(at + 2, at + 2 + count).reduce((sum, byte) => sum * 256 + byte, 0);
  const begin = at + 2 + count;
  const isShortest = count === 0 || (length >= 0x80 && bytes[at + 2] !== 0);
  if (!isShortest || begin + length > limit) throw refuse("The length of an element is not DER.");
  return { tag, begin, end: begin + length };
}

/** The length of the first element in the bytes, all of whose elements are well-formed. */
function lengthOfFirst(bytes) {
  const ends = []; // of the elements around this place
  let at = 0;
  let count = 0;
  do {
    const { tag, begin, end } = headAt(bytes, at, ends.at(-1) ?? bytes.length);
    const isConstructed = (tag & 0x20) !== 0;
    if (isConstructed) ends.push(end);
    at = isConstructed ? begin : end;
    if (ends.length > MAX_DEPTH || ++count > MAX_ELEMENTS) throw refuse("It has more elements than what is signed has.");
    while (at === ends.at(-1)) ends.pop();
  } while (ends.length > 0);
  return at;
}

/** The DER element that the bytes are, alone; with `padded` there may be zeros behind it. */
export function elementOf(bytes, { padded = false } = {}) {
  const length = lengthOfFirst(bytes);
  if (bytes.subarray(length).some((byte) => !padded || byte !== 0)) throw refuse("There is something behind the structure.");
  return bytes.subarray(0, length);
}

/** The elements in a constructed one, that is known to be DER: [{ tag, bytes, content }]. For what is too long for the library. */
export function childrenOf(bytes) {
  const children = [];
  for (let { begin: at, end } = headAt(bytes, 0, bytes.length); at < end;) {
    const child = headAt(bytes, at, end);
    children.push({ tag: child.tag, bytes: bytes.subarray(at, child.end), content: bytes.subarray(child.begin, child.end) });
    at = child.end;
  }
  return children;
}

/** A DER element of pkijs's `Type`, or as asn1js has it. */
export function parsed(bytes, Type = null, options = {}) {
  // A copy: the library's views are into the buffer from its begin.
  const { offset, result } = fromBER(elementOf(bytes, options).slice().buffer);
  if (offset === -1) throw refuse("It is no ASN.1 structure.");
  return Type === null ? result : new Type({ schema: result });
}

/** The bytes of an element of asn1js, or of a Name of pkijs, as they came. */
export function rawOf({ valueBeforeDecodeView, valueBeforeDecode }) {
  const bytes = new Uint8Array(valueBeforeDecodeView ?? valueBeforeDecode);
  if (bytes.length === 0) throw refuse("An element is missing.");
  return bytes;
}

/** The content of an OCTET STRING or of a BIT STRING of whole bytes, which DER has in one piece. */
export function octetsOf(element) {
  const { isConstructed } = element.idBlock;
  if (isConstructed || (element.valueBlock.unusedBits ?? 0) !== 0) throw refuse("A string is in pieces.");
  return new Uint8Array(element.valueBlock.valueHexView);
}

export const sameBytes = (one, other) => Buffer.compare(one, other) === 0;

/** Whether two INTEGERs are the same number, also where one has zeros in front. */
export const sameNumber = (one, other) => signedNumber(one) === signedNumber(other);
const signedNumber = (bytes) => BigInt.asIntN(bytes.length * 8, BigInt(`0x${Buffer.from(bytes).toString("hex")}`));
