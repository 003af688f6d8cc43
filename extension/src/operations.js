/**
 * The one table of what the extension does for pages. For each operation:
 *
 * - `check(values)` returns the request in the one form in which it travels inward, or throws a QuillmarkError. Whatever a
 *   page sends is validated here, once; behind it the request is one of ours.
 * - `toProgram(request)` is the message to the signing program, and `result(text)` what the page gets for the text of its
 *   answer; it throws BAD_REPLY when the text is not what was asked for.
 * - `asks` and `consequence` are the question to the user, by the keys of its messages; `shows(request)` is what it shows: a
 *   `text` in full, or `facts`, each a name and a value.
 * - `userChooses`: the host has the user choose a certificate for each such request.
 * - `showsDocuments`: the request is served by the window that shows its documents, which the user is asked in each time.
 * - `signs(request)`: what is signed, as {algorithm, digest in hexadecimal}. Absent where nothing is signed.
 * - `certificate(request, result)`: the SHA-1 thumbprint of the certificate that was chosen or has signed, where it can be known.
 */

import { MAX_GST_TEXT_BYTES, QuillmarkError } from "../quillmark.js";
import { fromBase64, isBase64, toBase64 } from "./base64.js";
import { certificateIn } from "./cms.js";
import { checkDocuments } from "./document-request.js";
import { digestOf, hex, sha256Hex } from "./digest.js";
import { message } from "./messages.js";

const DIGEST_BYTES = new Map([
  ["SHA-256", 32],
  ["SHA-384", 48],
  ["SHA-512", 64],
]);

// Longer than any that is meant: what is shown as one line must not be a book.
const MAX_PDF_DIGEST = 200;
const MAX_IT_DIGEST = 8192;
const MAX_NAME = 100;

const CHOOSE_NEXT = "asks_choose_next";

const OPERATIONS = new Map(
  Object.entries({
    selectCertificate: {
      check: () => ({}),
      toProgram: () => ({ action: "GetSelCertFromToken" }),
      result: certificate,
      asks: "asks_certificate",
      consequence: "asks_certificate_means",
      shows: () => ({}),
      userChooses: true,
      certificate: (request, record) => record.CertThumbPrint,
    },

    signGstReturn: {
      check: ({ text, hashAlgorithm }) => {
        checkText("text", text);
        const bytes = utf8(text).length;
        if (bytes > MAX_GST_TEXT_BYTES) {
          throw new QuillmarkError("TOO_LARGE", { detail: `The text holds at most ${MAX_GST_TEXT_BYTES} UTF-8 bytes.` });
        }
        return { text, hashAlgorithm: hashName(hashAlgorithm) };
      },
      toProgram: (request) => ({ action: "GSTReturnSign", hash: request.text, ...algorithmOf(request) }),
      result: signature,
      asks: "asks_gst",
      consequence: CHOOSE_NEXT,
      shows: ({ text }) => ({ text }),
      userChooses: true,
      signs: ({ text }) => sha256(text),
      certificate: async (request, result) => {
        const certificate = certificateIn(fromBase64(result));
        return certificate && (await digestOf("SHA-1", certificate)).toUpperCase();
      },
    },

    signItReturn: {
      check: ({ hash, pan, hashAlgorithm }) => {
        checkText("hash", hash, MAX_IT_DIGEST);
        checkText("pan", pan, MAX_NAME);
        return { hash, pan, hashAlgorithm: hashName(hashAlgorithm) };
      },
      toProgram: (request) => ({
        action: "ITReturnSign",
        hash: request.hash,
        PAN: request.pan,
        ...algorithmOf(request),
      }),
      result: signature,
      asks: "asks_it",
      consequence: "asks_it_means",
      shows: ({ hash, pan }) => ({
        facts: [
          ["PAN", pan],
          [message("asks_it_digest"), hash],
        ],
      }),
      userChooses: true,
      signs: ({ hash }) => sha256(hash),
    },

    signPdfHash: {
      check: ({ hash, certThumbPrint, hashAlgorithm }) => {
        const name = hashName(hashAlgorithm);
        checkText("hash", hash, MAX_PDF_DIGEST);
        const digest = decoded("hash", hash);
        if (digest.length !== DIGEST_BYTES.get(name)) {
          throw invalid(`hash has ${digest.length} bytes, a ${name} digest has ${DIGEST_BYTES.get(name)}.`);
        }
        // The signing program hands what it signs to the token only up to the first zero byte.
        if (digest.includes(0)) throw new QuillmarkError("DIGEST_UNSUITABLE");
        checkText("certThumbPrint", certThumbPrint, MAX_NAME);
        const thumbprint = certThumbPrint.toUpperCase();
        if (!/^[0-9A-F]{40}$/.test(thumbprint)) throw invalid("certThumbPrint is not 40 hexadecimal digits.");
        return { hash: toBase64(digest), certThumbPrint: thumbprint, hashAlgorithm: name };
      },
      toProgram: (request) => ({
        action: "PdfSignFromToken",
        hash: request.hash,
        certThumbPrint: request.certThumbPrint,
        ...algorithmOf(request),
      }),
      result: signature,
      asks: "asks_pdf_digest",
      consequence: "asks_pdf_digest_means",
      shows: ({ hash, hashAlgorithm, certThumbPrint }) => ({
        facts: [
          [message("asks_digest", hashAlgorithm), hex(fromBase64(hash))],
          [message("asks_thumbprint"), certThumbPrint],
        ],
      }),
      userChooses: false,
      signs: ({ hash, hashAlgorithm }) => ({ algorithm: hashAlgorithm, digest: hex(fromBase64(hash)) }),
      certificate: ({ certThumbPrint }) => certThumbPrint,
    },

    signPdfs: {
      check: checkDocuments,
      asks: "asks_documents",
      shows: (request) => request,
      showsDocuments: true,
      userChooses: true,
    },

    signAuthToken: {
      check: ({ authToken, hashAlgorithm }) => {
        checkText("token", authToken);
        return { authToken, hashAlgorithm: hashName(hashAlgorithm) };
      },
      toProgram: (request) => ({ action: "SignAuthToken", authToken: request.authToken, ...algorithmOf(request) }),
      result: signature,
      asks: "asks_auth",
      consequence: CHOOSE_NEXT,
      shows: ({ authToken }) => ({ text: authToken }),
      userChooses: true,
      signs: ({ authToken }) => sha256(authToken),
    },
  }),
);

/** The table's row of this name. Throws UNKNOWN_ACTION for anything else, of whatever type. */
export function operationOf(name) {
  const operation = OPERATIONS.get(name);
  if (!operation) throw new QuillmarkError("UNKNOWN_ACTION", { detail: `There is no operation ${shortly(name)}.` });
  return operation;
}

const sha256 = async (text) => ({ algorithm: "SHA-256", digest: await sha256Hex(text) });

// The host knows the algorithms by their names without the dash.
const algorithmOf = ({ hashAlgorithm }) => ({ hashAlgorithm: hashAlgorithm.replace("-", "") });

// ---- what travels inward

const invalid = (detail) => new QuillmarkError("INVALID_ARGUMENT", { detail });

const shortly = (value) => JSON.stringify(String(value).slice(0, 80));

const utf8 = (text) => new TextEncoder().encode(text);

function checkText(name, value, longest = Infinity) {
  if (typeof value !== "string" || value === "") throw invalid(`${name} has to be a text that is not empty.`);
  if (value.length > longest) throw invalid(`${name} has at most ${longest} characters.`);
  // The signing program reads a text up to its first zero character, and would sign less than the page asked for.
  if (value.includes("\0")) throw invalid(`${name} holds the character U+0000.`);
  // Half of a surrogate pair has no UTF-8 form, so nobody could verify a signature over it.
  if (/[\uD800-\uDBFF](?![\uDC00-\uDFFF])|(?<![\uD800-\uDBFF])[\uDC00-\uDFFF]/.test(value)) {
    throw invalid(`${name} is not well-formed Unicode.`);
  }
}

// The signing program takes an unknown name for SHA-256 in some requests, so no other spelling may reach it.
function hashName(name = "SHA-256") {
  const wanted = typeof name === "string" && name.toUpperCase().replaceAll("-", "");
  for (const known of DIGEST_BYTES.keys()) if (known.replace("-", "") === wanted) return known;
  throw new QuillmarkError("UNSUPPORTED_HASH", { detail: `There is no hash algorithm ${shortly(name)} here.` });
}

function decoded(name, text) {
  try {
    return fromBase64(text);
  } catch (cause) {
    throw new QuillmarkError("INVALID_ARGUMENT", { detail: `${name} is not Base64.`, cause });
  }
}

// ---- what travels outward

function certificate(text) {
  try {
    const record = JSON.parse(text);
    if (/^[0-9A-F]{40}$/.test(record.CertThumbPrint) && typeof record.Cert === "string") return record;
  } catch {
    // Answered below, like a record without what every page needs.
  }
  throw new QuillmarkError("BAD_REPLY", { detail: "The signing program's answer is no certificate record." });
}

function signature(text) {
  if (isBase64(text)) return text;
  throw new QuillmarkError("BAD_REPLY", { detail: "The signing program's answer is no Base64 text." });
}
