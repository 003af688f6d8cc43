/** The signing program's side of each operation: the request that it takes, and what its answer has to look like. */

import { QuillmarkError } from "../quillmark.js";

// The program knows the algorithms by their names without the dash.
const hashAlgorithm = (request) => request.hashAlgorithm.replace("-", "");

const HOST_REQUESTS = {
  selectCertificate: () => ({ action: "GetSelCertFromToken" }),
  signGstReturn: (request) => ({
    action: "GSTReturnSign",
    hash: request.text,
    hashAlgorithm: hashAlgorithm(request),
  }),
  signItReturn: (request) => ({
    action: "ITReturnSign",
    hash: request.hash,
    PAN: request.pan,
    hashAlgorithm: hashAlgorithm(request),
  }),
  signPdfHash: (request) => ({
    action: "PdfSignFromToken",
    hash: request.hash,
    certThumbPrint: request.certThumbPrint,
    hashAlgorithm: hashAlgorithm(request),
  }),
  signAuthToken: (request) => ({
    action: "SignAuthToken",
    authToken: request.authToken,
    hashAlgorithm: hashAlgorithm(request),
  }),
};

/** The request to the program for an operation with values that `checkRequest` has passed. */
export const hostRequest = (operation, request) => HOST_REQUESTS[operation](request);

/** What the page gets for the text of a successful reply. Throws BAD_REPLY when the text is not what was asked for. */
export function pageResult(operation, text) {
  return operation === "selectCertificate" ? certificate(text) : signature(text);
}

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
  if (/^[A-Za-z0-9+/]+={0,2}$/.test(text)) return text;
  throw new QuillmarkError("BAD_REPLY", { detail: "The signing program's answer is no Base64 text." });
}
