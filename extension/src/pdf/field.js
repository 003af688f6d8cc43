/** A signature field in a PDF document, with room for the signature. */

import { PDFArray, PDFBool, PDFDict, PDFHexString, PDFNumber, PDFRawStream, PDFRef, PDFString } from "../../libraries/pdf-lib.js";
import { zlibSync } from "../../libraries/fflate.js";
import { hex } from "../digest.js";
import { joined, latin1 } from "./bytes.js";
import { name } from "./file.js";
import { refusal } from "./refusal.js";
import { checkPermitted } from "./signed.js";
import { bytesOf, Update } from "./update.js";

// Stands for the numbers of the byte range, which are known when the file is complete; no file is as long.
const UNKNOWN = 9_999_999_999;
const BYTE_RANGE = `/ByteRange [ 0 ${UNKNOWN} ${UNKNOWN} ${UNKNOWN} ]`;

// ISO 32000-1, 12.7.2: the document has a signature, and may only be extended. 12.5.3: the field is printed, and locked.
const SIGNATURES_EXIST_APPEND_ONLY = 3;
const PRINT = 4;
const LOCKED = 128;

/** How often a new time is tried for a digest without a zero byte; each time one in eight has one. */
const MAX_ATTEMPTS = 20;

// What turns a picture against the clockwise turn of its page (8.3.3).
const UPRIGHT = { 0: [1, 0, 0, 1, 0, 0], 90: [0, 1, -1, 0, 0, 0], 180: [-1, 0, 0, -1, 0, 0], 270: [0, -1, 1, 0, 0, 0] };

/**
 * Extends a PdfFile by a signature field, and finds a time for it with which the digest holds no zero byte, for the
 * signing program hands what it signs to the token only up to the first one.
 *
 * `details`: {signer, reason, location: texts or undefined, time: a Date, room: bytes for the signature,
 * appearance: undefined or {page (from 0), rectangle: [left, bottom, right, top], picture(time): {width, height, rgb}}}.
 * Gives {digest, covered, file, insert(signature)}: the digest (SHA-256) of the bytes `covered`, the file with the room empty,
 * and a function that gives the appended bytes with the signature (DER) in that room.
 */
export async function withSignatureField(file, details) {
  for (let attempt = 0; attempt < MAX_ATTEMPTS; attempt++) {
    const time = new Date(details.time.getTime() - attempt * 1000);
    const prepared = prepare(file, { ...details, time });
    const digest = new Uint8Array(await crypto.subtle.digest("SHA-256", prepared.covered));
    if (!digest.includes(0)) return { ...prepared, digest };
  }
  throw refusal("refusal_digest");
}

function prepare(file, details) {
  const update = new Update(file);
  const signature = update.add(signatureBytes(file, details));
  addField(file, update, signature, details);
  const { bytes: appended, placeOf } = update.finish();

  // Its own bytes are searched, from its own place on: no text of a page can be taken for the room.
  const start = placeOf(signature);
  const own = latin1(appended.subarray(start, start + 2 * details.room + 4096));
  const range = start + own.indexOf(BYTE_RANGE);
  const room = start + own.indexOf("/Contents <") + "/Contents ".length;
  const roomEnd = room + 2 * details.room + 2;
  const before = file.bytes.length;
  const text = `/ByteRange [ 0 ${before + room} ${before + roomEnd} ${appended.length - roomEnd} ]`;
  appended.set(new TextEncoder().encode(text.padEnd(BYTE_RANGE.length)), range);

  const insert = (der) => {
    if (der.length > details.room) throw refusal("refusal_room");
    const signed = appended.slice();
    signed.set(new TextEncoder().encode(hex(der)), room + 1);
    return signed;
  };
  return {
    covered: joined([file.bytes, appended.subarray(0, room), appended.subarray(roomEnd)]),
    file: joined([file.bytes, appended]),
    insert,
  };
}

function dictionary(file, members) {
  const made = PDFDict.withContext(file.context);
  for (const [key, value] of Object.entries(members)) if (value !== undefined) made.set(name(key), value);
  return made;
}

function array(file, values) {
  const made = PDFArray.withContext(file.context);
  for (const value of values) made.push(typeof value === "number" ? PDFNumber.of(value) : value);
  return made;
}

const textOf = (text) => (text ? PDFHexString.fromText(text) : undefined);

function signatureBytes(file, { signer, reason, location, time, room }) {
  return bytesOf(
    dictionary(file, {
      Type: name("Sig"),
      Filter: name("Adobe.PPKLite"),
      SubFilter: name("adbe.pkcs7.detached"),
      ByteRange: array(file, [0, UNKNOWN, UNKNOWN, UNKNOWN]),
      Contents: PDFHexString.of("00".repeat(room)),
      Name: textOf(signer),
      Reason: textOf(reason),
      Location: textOf(location),
      M: PDFString.fromDate(time),
    }),
  );
}

function addField(file, update, signature, { appearance, time }) {
  checkPermitted(file, { isSeen: appearance !== undefined });
  const page = file.pages[appearance?.page ?? 0];
  if (!page) throw refusal("refusal_no_page", appearance.page + 1);
  const field = update.add(
    dictionary(file, {
      Type: name("Annot"),
      Subtype: name("Widget"),
      FT: name("Sig"),
      T: PDFString.of(`Signature ${crypto.randomUUID()}`),
      Rect: array(file, appearance?.rectangle ?? [0, 0, 0, 0]),
      F: PDFNumber.of(PRINT | LOCKED),
      P: page,
      V: signature,
      AP: appearance && dictionary(file, { N: appearanceStream(file, update, page, appearance, time) }),
    }),
  );
  extendList(file, update, page, "Annots", field);
  addToForm(file, update, field);
}

function addToForm(file, update, field) {
  const root = file.trailer.get(name("Root"));
  const form = file.member(file.catalog, "AcroForm", PDFDict);
  const changed = form ? copyOf(form) : dictionary(file, {});
  changed.set(name("SigFlags"), PDFNumber.of(SIGNATURES_EXIST_APPEND_ONLY));
  changed.set(name("Fields"), array(file, [...(file.member(changed, "Fields", PDFArray)?.asArray() ?? []), field]));
  const place = file.catalog.get(name("AcroForm"));
  if (form && place instanceof PDFRef) return update.replace(place, changed);
  const catalog = copyOf(file.catalog);
  catalog.set(name("AcroForm"), changed);
  update.replace(root, catalog);
}

// The list may be an object of its own, which others refer to as well.
function extendList(file, update, ref, key, added) {
  const owner = file.get(ref);
  const list = file.member(owner, key, PDFArray);
  const extended = array(file, [...(list?.asArray() ?? []), added]);
  const place = owner.get(name(key));
  if (list && place instanceof PDFRef) return update.replace(place, extended);
  const changed = copyOf(owner);
  changed.set(name(key), extended);
  update.replace(ref, changed);
}

const copyOf = (given) => PDFDict.fromMapWithContext(new Map(given.entries()), given.context);

// A picture, so that a name in any script is drawn as it was on the screen, and no font has to be in the file.
function appearanceStream(file, update, page, { rectangle, picture }, time) {
  const { width, height, rgb } = picture(time);
  const image = update.add(
    PDFRawStream.of(
      dictionary(file, {
        Type: name("XObject"),
        Subtype: name("Image"),
        Width: PDFNumber.of(width),
        Height: PDFNumber.of(height),
        ColorSpace: name("DeviceRGB"),
        BitsPerComponent: PDFNumber.of(8),
        Filter: name("FlateDecode"),
        Interpolate: PDFBool.True,
      }),
      zlibSync(rgb),
    ),
  );
  const turn = rotationOf(file, page);
  const [across, up] = [rectangle[2] - rectangle[0], rectangle[3] - rectangle[1]];
  const [w, h] = turn % 180 === 0 ? [across, up] : [up, across];
  return update.add(
    PDFRawStream.of(
      dictionary(file, {
        Type: name("XObject"),
        Subtype: name("Form"),
        BBox: array(file, [0, 0, w, h]),
        Matrix: array(file, UPRIGHT[turn]),
        Resources: dictionary(file, { XObject: dictionary(file, { Picture: image }) }),
      }),
      new TextEncoder().encode(`q ${w} 0 0 ${h} 0 0 cm /Picture Do Q`),
    ),
  );
}

function rotationOf(file, page) {
  const rotation = file.inherited(page, "Rotate");
  return rotation instanceof PDFNumber ? (((Math.round(rotation.asNumber() / 90) * 90) % 360) + 360) % 360 : 0;
}

