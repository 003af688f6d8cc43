/** The signatures that a PDF document has. */

import { PDFArray, PDFDict, PDFHexString, PDFName, PDFString } from "../../libraries/pdf-lib.js";
import { joined, latin1 } from "./bytes.js";
import { readSignature, readTimeStamp } from "./cms.js";
import { name } from "./file.js";
import { refusal } from "./refusal.js";

/** How the kinds of signatures are read, by their SubFilter. */
const READERS = new Map([
  ["adbe.pkcs7.detached", readSignature],
  ["ETSI.CAdES.detached", readSignature],
  ["ETSI.RFC3161", readTimeStamp],
]);

const MAX_SIGNATURES = 200;
const MAX_DEPTH = 20;

// ISO 32000-1, table 254: what a certifying signature permits. Where it does not say, it is the former.
const SIGNATURES = 2;
const SIGNATURES_AND_NOTES = 3;

/** What signatures refer to beside a certification; these forbid no signature. */
const OTHER_METHODS = ["FieldMDP", "UR", "UR3", "Identity"];

/**
 * The signatures in the file's form, in the order of what they cover: [{isWhole, coversAll, signer, certificate, time, kind}].
 * `isWhole` is null where the kind of signature is not known here; `coversAll`: nothing was added behind it.
 */
export async function signaturesOf(file) {
  const signatures = [];
  for (const { value } of signedFields(file)) signatures.push(await read(file, value));
  return signatures.sort((one, other) => one.end - other.end);
}

/**
 * Throws DOCUMENT_REFUSED when a signature of the document forbids a further one (12.8.2.2). `isSeen`: that one is to be seen on a
 * page, which makes it an annotation.
 */
export function checkPermitted(file, { isSeen = false } = {}) {
  const permissions = permissionsOf(file);
  const isKnown = (permission) => [SIGNATURES, SIGNATURES_AND_NOTES].includes(permission);
  if (!permissions.every(isKnown)) throw refusal("refusal_certified");
  if (isSeen && permissions.includes(SIGNATURES)) {
    throw refusal("refusal_certified_seen");
  }
}

function permissionsOf(file) {
  const certification = file.member(file.member(file.catalog, "Perms", PDFDict), "DocMDP", PDFDict);
  const fields = signedFields(file);
  const references = [...fields.map(({ value }) => value), certification]
    .flatMap((dictionary) => (dictionary && file.member(dictionary, "Reference", PDFArray)?.asArray()) ?? [])
    .map((each) => file.get(each))
    .filter((each) => !OTHER_METHODS.includes(file.member(each, "TransformMethod", PDFName)?.decodeText()));
  // A field's lock says the same for what comes behind its signature (ISO 32000-2, table 236).
  const locks = fields.map(({ field }) => file.member(field, "Lock", PDFDict)).filter((lock) => lock?.has(name("P")));
  const rules = [...references.map((each) => file.member(each, "TransformParams", PDFDict)), ...locks];
  return rules.map((rule) => {
    const permission = file.member(rule, "P");
    return permission === undefined ? SIGNATURES : permission.asNumber?.();
  });
}

/** The fields that are signed, and their signatures: [{field, value}]. */
function signedFields(file) {
  const found = [];
  const seen = new Set();
  const visit = (given, inherited, depth) => {
    const field = file.get(given);
    if (!(field instanceof PDFDict) || seen.has(field)) return;
    seen.add(field);
    if (depth > MAX_DEPTH || found.length > MAX_SIGNATURES) throw refusal("refusal_many_fields");
    const type = file.member(field, "FT", PDFName) ?? inherited;
    const value = type === name("Sig") && file.member(field, "V", PDFDict);
    if (value) found.push({ field, value });
    for (const kid of file.member(field, "Kids", PDFArray)?.asArray() ?? []) visit(kid, type, depth + 1);
  };
  const form = file.member(file.catalog, "AcroForm", PDFDict);
  for (const field of (form && file.member(form, "Fields", PDFArray)?.asArray()) ?? []) visit(field, undefined, 0);
  return found;
}

async function read(file, dictionary) {
  const kind = file.member(dictionary, "SubFilter", PDFName)?.decodeText() ?? "";
  const text = (key) => textIn(file.member(dictionary, key));
  const about = { kind, signer: text("Name"), time: text("M"), isWhole: false, coversAll: false, end: 0 };
  const range = (file.member(dictionary, "ByteRange", PDFArray)?.asArray() ?? []).map((each) => file.get(each)?.asNumber?.());
  const contents = file.member(dictionary, "Contents", PDFHexString);
  const covered = contents && coveredBy(file.bytes, range, contents);
  if (!covered) return about;
  about.end = range[2] + range[3];
  about.coversAll = isBlank(file.bytes.subarray(about.end));
  const readIt = READERS.get(kind);
  if (!readIt) return { ...about, isWhole: null };
  try {
    const { isWhole, signer, certificate } = await readIt(contents.asBytes(), covered);
    return { ...about, isWhole, certificate, signer: signer || about.signer };
  } catch {
    return about;
  }
}

// The bytes that a signature is over: all but its own Contents, with nothing else in the gap.
function coveredBy(bytes, [first, gap, behind, rest, ...more], contents) {
  const isRange = [first, gap, behind, rest].every((each) => Number.isInteger(each) && each >= 0) && more.length === 0;
  if (!isRange || first !== 0 || gap >= behind || behind + rest > bytes.length) return undefined;
  const inGap = latin1(bytes.subarray(gap, behind));
  if (inGap !== `<${contents.asString()}>`) return undefined;
  return joined([bytes.subarray(0, gap), bytes.subarray(behind, behind + rest)]);
}

const isBlank = (bytes) => bytes.every((byte) => [0, 9, 10, 12, 13, 32].includes(byte));

function textIn(object) {
  return object instanceof PDFString || object instanceof PDFHexString ? object.decodeText() : "";
}
