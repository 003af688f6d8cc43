// What the host is asked, what it says, and what its windows are called.

export const WINDOW_TITLE = "Quillmark - Select Certificate";
export const PIN_TITLE = "Quillmark";
export const ERROR_TITLE = "Exiting Quillmark - Error Loading Token Driver";

/** The request for the user's choice of a certificate. */
export const CHOOSE = { action: "GetSelCertFromToken" };

export const FAILURE_PREFIX = "QMHost Error: ";
export const CANCEL_TEXT = "User Canceled without Selecting Certificate.";
export const NO_PIN_TEXT = "Token User PIN required for Token Login, but given empty.";
export const CLOSING_TEXT = "Exiting ReadStdin Loop and Closing Host Application.";

/** How a host ends whose input has ended. */
export const NORMAL_END = { code: 0, signal: null };

/** The text that a failed PKCS#11 call gives. */
export function errorLine(label, code) {
  const low = (BigInt(code) & 0xffffffffn).toString(16).toUpperCase().padStart(8, "0");
  return `[CKR_ERROR in ${label}] ErrCode = 0x${low}.`;
}
