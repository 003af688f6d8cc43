/** What the signing program's and the browser's failure texts mean, as error codes. docs/errors.md lists them for people. */

import { CKR_NAMES } from "./ckr.js";

// Each layer of the host may put "Error  in Name(): " in front of the text of the layer below.
const LAYER = /^Error {1,2}in \w+\(\): /;

/**
 * The host's failure texts, without the layers' prefixes; the first rule that matches counts.
 *
 * `restart` marks the failures after which the host's run is of no more use: it keeps its session and its list of
 * certificates to its end, and with some tokens an unsuccessful search stays open and spoils the next one. After a login that
 * failed it may hold a PIN that the driver has forgotten, and would not ask the user again.
 */
const RULES = [
  { text: /^echo: /, code: "UNKNOWN_ACTION" },
  { text: /^Not Implimented\.$/, code: "NOT_IMPLEMENTED" },
  { text: /^User Canceled without Selecting Certificate\.$/, code: "USER_CANCELLED" },
  { text: /^No slot with token attached\.$/, code: "TOKEN_MISSING" },
  { text: /^Token User PIN required for Token Login, but given empty\.$/, code: "LOGIN_FAILED", reason: "empty", restart: true },
  { text: /^Unsupported hash algorithm$/, code: "UNSUPPORTED_HASH" },
  { text: /^Private Key NOT Found$/, code: "KEY_NOT_FOUND", restart: true },
  // The chosen certificate has no CKA_ID, so no private key can be found by it.
  { text: /^Select Certificate Response Empty\.$/, code: "KEY_NOT_FOUND" },
  { text: /^GetSelCertFromToken - Selected Key ID Not Found in Certificates List: /, code: "CERTIFICATE_NOT_FOUND" },
  { text: /^Certificate not found in the token's certificate list: /, code: "CERTIFICATE_NOT_FOUND" },
  { text: /^Empty Response form method TokenSignHash\(\)$/, code: "TOKEN_ERROR", restart: true },
  { text: /^Can't allocate enough memory$/, code: "TOKEN_ERROR", restart: true },
  // What a token's module must not answer: "C_GetSlotList gives no slot any more".
  { text: /^C_\w+ gives /, code: "TOKEN_ERROR", restart: true },
];

const CKR_LINE = /^\[CKR_ERROR in (.+)\] ErrCode = 0x([0-9A-F]{8})\.$/;
const TOKEN_IS_GONE = ["CKR_TOKEN_NOT_PRESENT", "CKR_TOKEN_NOT_RECOGNIZED", "CKR_DEVICE_REMOVED"];

/**
 * Classifies the text of a failed reply, the one behind "QMHost Error: ".
 *
 * `loggedIn` tells whether the token has already signed in this run of the host. The host gives no reason when it
 * cannot get at the private key. Before the login that is nearly always the login itself; after it, the PIN is not
 * asked for again, so the token must have failed.
 *
 * @returns {{code: string, reason?: string, detail: string, ckr?: string, restart: boolean}}
 */
export function classifyFailure(text, { loggedIn }) {
  let inner = text;
  while (LAYER.test(inner)) inner = inner.replace(LAYER, "");

  if (inner === "") {
    const detail = "The signing program gave no reason; its log file has it.";
    return { code: loggedIn ? "TOKEN_ERROR" : "LOGIN_FAILED", detail, restart: true };
  }
  const ckr = CKR_LINE.exec(inner);
  if (ckr) return { ...classifyCkr(ckr[1], Number.parseInt(ckr[2], 16)), detail: text, restart: true };

  const rule = RULES.find((each) => each.text.test(inner)) ?? { code: "BAD_REPLY", restart: true };
  return { code: rule.code, reason: rule.reason, detail: text, restart: rule.restart ?? false };
}

function classifyCkr(label, value) {
  const ckr = CKR_NAMES.get(value) ?? `0x${value.toString(16).toUpperCase().padStart(8, "0")}`;
  if (TOKEN_IS_GONE.includes(ckr)) return { code: "TOKEN_MISSING", ckr };
  // With several tokens the driver tells at the signature that a further one's PIN was wrong, cancelled or locked.
  const isLogin = label === "C_Login" || ckr === "CKR_USER_NOT_LOGGED_IN";
  return { code: isLogin ? "LOGIN_FAILED" : "TOKEN_ERROR", ckr };
}

/**
 * Classifies the browser's text for a port to the host that closed by itself; the text may be missing. `answered`
 * tells whether the host has answered anything: Firefox has one text for a program that it cannot start and for
 * several things that happen later.
 */
export function classifyDisconnect(text = "", { answered }) {
  if (/not found|No such native application|Failed to start/i.test(text)) return "HOST_MISSING";
  if (/^An unexpected error occurred$/.test(text) && !answered) return "HOST_MISSING";
  if (/forbidden|disabled by the system administrator/i.test(text)) return "HOST_FORBIDDEN";
  return "HOST_EXITED";
}
