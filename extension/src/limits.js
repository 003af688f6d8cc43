/** The extension's limits, by name and with their reasons. Those of bridge.js stand there, for it can import nothing. */

const SECOND = 1_000;
const MINUTE = 60 * SECOND;
export const MINUTE_MS = MINUTE;

/** Open requests of all documents together: what a person has open at once, many times over. */
export const MAX_OPEN = 200;

/** Open requests of one document, as in bridge.js. */
export const MAX_OPEN_PER_DOCUMENT = 20;

/** How long a click or key counts: sites fetch what is to be signed after the click. */
export const GESTURE_MS = 30 * SECOND;

/** Questions in the whole browser within one minute: more than a person reads, fewer than a flood. */
export const QUESTIONS_PER_MINUTE = 10;

/** How long an origin waits after a question that was not answered with an allowance: the first time, the next, and so on. */
export const REFUSAL_WAITS_MS = [10 * SECOND, MINUTE, 10 * MINUTE, 60 * MINUTE];

/** How long after its wait a refusal counts for the next one. */
export const REFUSALS_KEPT_MS = 60 * MINUTE;

/** How often at most a page hears of its request's progress. */
export const PROGRESS_MS = 250;

/** How long the administrator's settings are waited for after a start: Chromium has none for up to 3 seconds (seen). */
export const POLICY_SETTLE_MS = 8 * SECOND;

/** How long the page around a frame has to say its origin. */
export const SURROUNDINGS_MS = 1 * SECOND;

/** How long a page has to give a piece of a document, a time stamp, or a sign that it has taken an outcome. */
export const PAGE_ANSWER_MS = MINUTE;

/** The host needs no user for a sign of life, only the time to start. */
export const SIGN_OF_LIFE_MS = 15 * SECOND;

/** A text travels to the extension's own windows in pieces, for a browser's message has at most 64 MiB. */
export const TEXT_PIECE_CHARACTERS = 4 * 1024 * 1024;

/** Signatures that the journal keeps. */
export const MAX_JOURNAL_ENTRIES = 5_000;

/** Signatures that the toolbar's popup lists. */
export const MAX_RECENT = 20;

/** How long the PIN is kept, in minutes, when neither the user nor the administrator says otherwise, and what they may say. */
export const PIN_LIFE = {
  quietMinutes: { standard: 10, least: 1, most: 60 },
  longestMinutes: { standard: 240, least: 1, most: 720 },
};

/** The largest document, and all of a request together: they are held several times while they are shown and signed. */
export const MAX_PDF_BYTES = 64 * 1024 * 1024;
export const MAX_ALL_PDF_BYTES = 256 * 1024 * 1024;

/** Documents of one request: as many as somebody looks through. */
export const MAX_DOCUMENTS = 100;

/** Pages of a document that its window can draw and a person can look through. */
export const MAX_PDF_PAGES = 5_000;

/** Objects of a document, and bytes of one of its packed parts, above which it is meant to fill the memory. */
export const MAX_PDF_OBJECTS = 1_000_000;
export const MAX_PDF_STREAM_BYTES = 64 * 1024 * 1024;
