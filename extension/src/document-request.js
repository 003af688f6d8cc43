/** How a request to sign documents is checked, and what its window is told of it. */

import { isBase64 } from "./base64.js";
import { MAX_ALL_PDF_BYTES, MAX_DOCUMENTS, MAX_PDF_BYTES } from "./limits.js";
import { QuillmarkError } from "../quillmark.js";

const MAX_NAME = 255;
const MAX_WORDS = 500;

/** Certificates beside the signer's, and the length of each in Base64: what authorities really issue, twice. */
const MAX_CHAIN = 10;
const MAX_CERTIFICATE = 16 * 1024;

/** A page of a PDF is at most that long, in points (ISO 32000-1, annex C); a signature has to be seen. */
const MAX_POINTS = 14_400;
const MIN_POINTS = 10;

const invalid = (detail) => new QuillmarkError("INVALID_ARGUMENT", { detail });

/**
 * The request's documents and options from `values`: {documents, chain: texts of JSON, timestamp: true or false}. Gives
 * {documents: [{name, size, reason, location, visible}], chain: [Base64], timestamp}.
 */
export function checkDocuments({ documents, chain, timestamp }) {
  const list = listIn("documents", documents);
  if (list.length < 1) throw invalid("There is no document to sign.");
  if (list.length > MAX_DOCUMENTS) throw tooLarge(`A request has at most ${MAX_DOCUMENTS} documents.`);
  const checked = list.map(checkDocument);
  const total = checked.reduce((sum, { size }) => sum + size, 0);
  if (total > MAX_ALL_PDF_BYTES) throw tooLarge(`The documents of a request have at most ${MAX_ALL_PDF_BYTES} bytes.`);
  const certificates = listIn("chain", chain ?? "[]");
  const isChain = certificates.every((each) => typeof each === "string" && each.length <= MAX_CERTIFICATE && isBase64(each));
  if (!isChain || certificates.length > MAX_CHAIN) throw invalid(`chain has at most ${MAX_CHAIN} certificates, in DER.`);
  return { documents: checked, chain: certificates, timestamp: timestamp === true };
}

function listIn(name, text) {
  try {
    const list = JSON.parse(text);
    if (Array.isArray(list)) return list;
  } catch {
    // Answered below.
  }
  throw invalid(`${name} is no list.`);
}

function checkDocument(given) {
  if (typeof given !== "object" || given === null) throw invalid("A document is no document.");
  const { name = "document.pdf", size, reason = "", location = "", visible = false } = given;
  if (!Number.isInteger(size) || size < 1) throw invalid("A document has no bytes.");
  if (size > MAX_PDF_BYTES) throw tooLarge(`A document has at most ${MAX_PDF_BYTES} bytes.`);
  checkWords("name", name, MAX_NAME);
  checkWords("reason", reason, MAX_WORDS);
  checkWords("location", location, MAX_WORDS);
  return { name, size, reason, location, visible: checkVisible(visible) };
}

function checkWords(name, text, longest) {
  if (typeof text === "string" && text.length <= longest) return;
  throw invalid(`${name} has to be a text of at most ${longest} characters.`);
}

// false, true (the user chooses the place), or {page (from 1), x, y, width, height}, in points from the lower left corner.
function checkVisible(visible) {
  if (typeof visible === "boolean") return visible;
  const { page = 1, x, y, width, height } = visible ?? {};
  const isPlace = [x, y, width, height].every((each) => Number.isFinite(each) && Math.abs(each) <= MAX_POINTS);
  if (!isPlace || width < MIN_POINTS || height < MIN_POINTS || !Number.isInteger(page) || page < 1) {
    throw invalid("visible has to be true, or {page, x, y, width, height} in points.");
  }
  return { page, x, y, width, height };
}

const tooLarge = (detail) => new QuillmarkError("TOO_LARGE", { detail });
