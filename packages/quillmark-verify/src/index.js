/** Verifies what Quillmark signs. index.d.ts describes each function. */

export { newChallenge, verifyAuthToken } from "./auth-token.js";
export { ERRORS, VerificationError } from "./error.js";
export { verifyGstReturn } from "./gst-return.js";
export { verifyJws } from "./jws.js";
export { verifyPdf, verifyPdfHash } from "./pdf.js";
