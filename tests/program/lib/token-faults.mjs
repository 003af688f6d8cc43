// Everything that a token can do wrong in each flow, and what the host must then answer, show and log.
//
// A flow is a request with the PKCS#11 calls that it makes. A case is one fault in one of these calls. What must come of
// it follows from four rules, by the part of the flow that fails:
//
//   opening   the failed call's line goes to the browser as it is
//   listing   it goes to the browser behind the name of the request's handler
//   key       (login and search for the key) the browser gets an empty text, the log has the reason
//   signing   the browser gets the line behind "TokenSignData", or the words for an empty signature of a hash
//
// In the flow of a PDF all certificates are listed already, by an earlier choice.

import { CANCEL_TEXT, CK, errorLine } from "../../lib/kit.mjs";

export const FLOWS = [
  { name: "choose", handler: "GetSelCertFromToken", window: true },
  { name: "GST", handler: "GetGSTReturnSignature", window: true, signs: "data" },
  { name: "IT", handler: "GetITReturnSignature", window: true, signs: "hash" },
  { name: "auth token", handler: "SignAuthToken", window: true, signs: "data" },
  { name: "PDF", handler: "GetPDFSignature", window: false, signs: "data" },
];

/** The codes that a call can fail with. */
const CODES = {
  CKR_HOST_MEMORY: 0x2,
  CKR_FUNCTION_FAILED: 0x6,
  CKR_DEVICE_REMOVED: CK.CKR_DEVICE_REMOVED,
  CKR_PIN_LOCKED: CK.CKR_PIN_LOCKED,
  CKR_SESSION_HANDLE_INVALID: CK.CKR_SESSION_HANDLE_INVALID,
  CKR_TOKEN_NOT_PRESENT: CK.CKR_TOKEN_NOT_PRESENT,
  "a code above 32 bits": 0x8_0000_0032,
  "a code above 32 bits that is 0 below": 0x1_0000_0000,
};

const UNAVAILABLE = -1; // CK_UNAVAILABLE_INFORMATION
const HUGE = 2 ** 40;

// What the module itself answers to the nonsense that it gave.
const CKR_KEY_HANDLE_INVALID = 0x60;
const CKR_OBJECT_HANDLE_INVALID = 0x82;
const CKR_BUFFER_TOO_SMALL = 0x150;

const LIST = "BuildTokenCertList - ";
const KEY = "GetTokenPvtKey - ";

const GROWN = "C_GetAttributeValue gives more than it said";

/**
 * The calls of a flow in their order. `nth` counts the calls of an entry point within its part of the flow. `nonsense` are
 * output parameters that the call may get wrong; of each, [value, what comes of it].
 */
const calls = [
  { part: "opening", call: "C_Initialize" },
  { part: "opening", call: "C_GetSlotList", nth: 1, nonsense: {
    count: [[0, noSlot], ...[UNAVAILABLE, HUGE].map((it) => [it, openingFails("C_GetSlotList gives more than 65536 slots")])],
  } },
  { part: "opening", call: "C_GetSlotList", nth: 2, nonsense: {
    count: [[0, openingFails("C_GetSlotList gives no slot any more")],
      [UNAVAILABLE, listsAllTheSame], [HUGE, listsAllTheSame]],
  } },
  { part: "opening", call: "C_OpenSession", nonsense: { session: [0, UNAVAILABLE, HUGE].map((it) => [it, badSession]) } },
  { part: "listing", call: "C_FindObjectsInit", label: `${LIST}C_FindObjectsInit` },
  { part: "listing", call: "C_FindObjects", nth: 1, label: `${LIST}C_FindObjects`, nonsense: {
    count: [0, 2, UNAVAILABLE, HUGE].map((count) => [count, noCertificate]),
    object: [0, UNAVAILABLE, HUGE].map((it) =>
      [it, listingFails(errorLine(`${LIST}C_GetAttributeValue for Sizing`, CKR_OBJECT_HANDLE_INVALID))]),
  } },
  { part: "listing", call: "C_GetAttributeValue", nth: 1, label: `${LIST}C_GetAttributeValue for Sizing`,
    // There is no buffer for a value of no bytes, and one byte for a zero behind an id of none.
    nonsense: Object.fromEntries([["CKA_VALUE", GROWN], ["CKA_ID", errorLine(`${LIST}C_GetAttributeValue`, CKR_BUFFER_TOO_SMALL)]]
      .map(([length, whenNone]) => [length, [
        [0, listingFails(whenNone)],
        ...[UNAVAILABLE, HUGE].map((it) => [it, listingFails("C_GetAttributeValue gives a length above 16777216 bytes")]),
      ]])) },
  { part: "listing", call: "C_GetAttributeValue", nth: 2, label: `${LIST}C_GetAttributeValue`,
    nonsense: Object.fromEntries([["CKA_VALUE", listsNoCertificate], ["CKA_ID", listsAllTheSame]].map(([length, whenNone]) =>
      [length, [
        [0, whenNone],
        ...[UNAVAILABLE, HUGE].map((it) => [it, listingFails(GROWN)]),
      ]])) },
  { part: "listing", call: "C_FindObjects", nth: 2, label: `${LIST}C_FindObjects`, nonsense: {
    count: [[1, listingFails(errorLine(`${LIST}C_GetAttributeValue for Sizing`, CKR_OBJECT_HANDLE_INVALID))],
      ...[2, UNAVAILABLE, HUGE].map((it) => [it, listsAllTheSame])],
  } },
  { part: "listing", call: "C_FindObjectsFinal", label: `${LIST}C_FindObjectsFinal` },
  { part: "login", call: "C_Login" },
  { part: "key", call: "C_FindObjectsInit", label: `${KEY}C_FindObjectsInit` },
  { part: "key", call: "C_FindObjects", nth: 1, label: `${KEY}C_FindObjects`, nonsense: {
    count: [[0, noKey], ...[2, UNAVAILABLE, HUGE].map((it) => [it, nothingComesOfIt])],
    object: [0, UNAVAILABLE, HUGE].map((it) => [it, signingFails(errorLine("C_SignInit", CKR_KEY_HANDLE_INVALID))]),
  } },
  { part: "key", call: "C_FindObjectsFinal", label: `${KEY}C_FindObjectsFinal` },
  { part: "signing", call: "C_SignInit" },
  { part: "signing", call: "C_Sign", nonsense: {
    length: [[0, signsNothing],
      ...[1025, UNAVAILABLE, HUGE].map((it) => [it, signingFails("C_Sign gives a signature above 1024 bytes")])],
  } },
];

/**
 * All cases of a flow in the order of its calls:
 *
 * - `name`; `part`, of the flow; `faults`, as the scripted module reads them
 * - `answer`: what the user does at the window: "ok", "cancel", or null when it goes by itself
 * - `logsIn`: whether the login is reached; `succeeds`: whether it is made
 * - `result`: the text of the failed reply; null when the request must succeed all the same
 * - `log`: the lines that the request leaves at the level INFO
 * - `isLast`: the process can be led through no other fault afterwards; the next request then fares like `after`
 */
export function casesOf(flow) {
  return callsOf(flow).flatMap((at) => [
    ...Object.entries(CODES).map(([name, rv]) => ({
      part: at.part,
      name: `${describe(at)} fails with ${name}`,
      faults: [{ call: at.call, nth: at.nth, rv }],
      ...callFails(flow, at, rv),
    })),
    ...Object.entries(at.nonsense ?? {}).flatMap(([member, outcomes]) => outcomes.map(([value, outcome]) => ({
      part: at.part,
      name: `${describe(at)} gives the ${member} ${value}`,
      faults: [{ call: at.call, nth: at.nth, out: { [member]: value } }],
      ...outcome(flow),
    }))),
    ...(at.call === "C_GetSlotList" && at.nth === 1 ? finalizeCases(flow) : []),
  ]);
}

/** The calls of a flow. */
export function callsOf(flow) {
  return calls.map((at) => ({ nth: 1, label: at.call, ...at })).filter(({ part }) => {
    const isOfTheList = part === "opening" || part === "listing";
    return isOfTheList ? flow.window : flow.signs;
  });
}

/** What comes of it when a call fails with a code. */
export function callFails(flow, { part, label }, code) {
  const line = errorLine(label, code);
  if (part === "opening") return openingFails(line)(flow);
  if (part === "listing") return listingFails(line)(flow);
  if (part === "signing") return signingFails(line)(flow);
  const reason = [`Error in GetTokenPvtKey(): ${line}`];
  return part === "key" ? fails(flow, "", reason)
    : { ...fails(flow, "", [`Error  in TokenLogin(): ${line}`, ...reason]), succeeds: false };
}

/** Success of a request as if there were no fault. */
export function nothingComesOfIt(flow) {
  return fails(flow, null, []);
}

function describe({ part, call, nth }) {
  return `${part}: ${call}${nth > 1 ? ` (${nth})` : ""}`;
}

/** C_Finalize is called on the way out when there is no token: its result is of no interest. */
function finalizeCases(flow) {
  return Object.entries(CODES).map(([name, rv]) => ({
    part: "opening",
    name: `opening: C_Finalize without a token fails with ${name}`,
    faults: [{ call: "C_GetSlotList", out: { count: 0 } }, { call: "C_Finalize", rv }],
    ...noSlot(flow),
  }));
}

// The outcomes.

const OPENED = "Opening Select Certificate Dialog";
const CLOSED = "Select Certificate Dialog Closed";

/** After the user's choice. */
function fails(flow, result, lines) {
  return {
    answer: flow.window ? "ok" : null, logsIn: Boolean(flow.signs), succeeds: true, result,
    log: [...(flow.window ? [OPENED, CLOSED] : []), ...lines],
  };
}

/** Before the user has a choice. */
function failsEarly(result, lines) {
  return { answer: null, logsIn: false, succeeds: false, result, log: [OPENED, ...lines] };
}

function openingFails(line) {
  return () => failsEarly(line, [`Error  in TokenOpenSession(): ${line}`]);
}

function noSlot() {
  return failsEarly("No slot with token attached.", []);
}

function listingFails(line) {
  return ({ handler }) => {
    const result = `Error  in ${handler}(): ${line}`;
    return failsEarly(result, [`Error  in GetTokenCertList(): ${line}`, result]);
  };
}

/** The first call with the session that the module gave is refused by it, now and ever after. */
function badSession(flow) {
  const outcome = listingFails(errorLine(`${LIST}C_FindObjectsInit`, CK.CKR_SESSION_HANDLE_INVALID))(flow);
  return { ...outcome, isLast: true, after: outcome };
}

function noCertificate() {
  return {
    answer: "cancel", logsIn: false, succeeds: false, result: CANCEL_TEXT,
    log: [OPENED, "Can't find X.509 Certificate in Token", CLOSED],
  };
}

/** From now on the process has its list. */
function listsAllTheSame(flow) {
  return { ...nothingComesOfIt(flow), isLast: true, after: nothingComesOfIt(flow) };
}

/** The list has a row, but it is no certificate's. */
function listsNoCertificate(flow) {
  const outcome = { ...nothingComesOfIt(flow), isNoCertificate: true };
  return { ...outcome, isLast: true, after: outcome };
}

function noKey(flow) {
  return fails(flow, "Private Key NOT Found", ["Private Key NOT Found"]);
}

/** A signature of no bytes is one for data, and none for a hash. */
function signsNothing(flow) {
  return flow.signs === "hash" ? fails(flow, "Empty Response form method TokenSignHash()", [])
    : { ...nothingComesOfIt(flow), isUnsigned: true };
}

function signingFails(line) {
  return (flow) => flow.signs === "hash"
    ? fails(flow, "Empty Response form method TokenSignHash()", [`Error  in TokenSign(): ${line}`])
    : fails(flow, `Error  in TokenSignData(): ${line}`, [`Error  in TokenSignData(): ${line}`]);
}
