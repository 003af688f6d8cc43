/**
 * Quillmark's page library: signatures with the user's crypto token, for web pages.
 *
 * Copy this file to your own server and import it; it has no dependencies.
 *
 *     import { selectCertificate, signPdfHash, suitableDigest } from "./quillmark.js";
 *
 *     const certificate = await selectCertificate();
 *     const { hash, hashAlgorithm, bytes } = await suitableDigest((attempt) => bytesToSign(attempt));
 *     const pkcs7 = await signPdfHash(hash, certificate.CertThumbPrint, { hashAlgorithm });
 *
 * Every call returns a promise. It rejects with a `QuillmarkError`, whose `code` is for programs and whose `message` is
 * for people. The extension asks the user before a site's first request, and serves one request at a time.
 *
 * The declarations in quillmark.d.ts describe each function in full.
 */

/** What the user is told, by error code. The codes are stable; the words may be improved. */
export const ERRORS = Object.freeze({
  EXTENSION_MISSING: "The Quillmark extension is not installed, switched off, or was just updated. Install it or switch it on, then reload this page.",
  HOST_MISSING: "Quillmark's signing program is not installed, or this browser does not know it. Install it, or run quillmark-doctor to see what is missing.",
  HOST_EXITED: "The signing program ended before it had answered. Try again. If this repeats, run quillmark-doctor.",
  HOST_FORBIDDEN: "This browser is not allowed to start the signing program. A policy of this computer or the signing program's registration forbids it; quillmark-doctor shows which.",
  USER_CANCELLED: "You cancelled, and nothing was signed. If the list was empty, run quillmark-tokens: it tells why.",
  TOKEN_MISSING: "No crypto token was found. Plug in your token or insert your card, then try again.",
  LOGIN_FAILED: "The token did not accept the login: the PIN was wrong, left empty, or is locked. Check the PIN before you try again; most tokens lock after a few wrong ones.",
  KEY_NOT_FOUND: "The token holds no private key for this request.",
  CERTIFICATE_NOT_FOUND: "The certificate that this page asked for is not the one chosen, or is not on the token.",
  TOKEN_ERROR: "The token reported an error. Unplug it, plug it in again, then try once more.",
  UNSUPPORTED_HASH: "This page asked for a hash algorithm that is not offered. Offered are SHA-256, SHA-384 and SHA-512.",
  UNKNOWN_ACTION: "The signing program does not know this kind of request.",
  NOT_IMPLEMENTED: "The signing program does not offer this kind of signature.",
  TOO_LARGE: "This is too large to be signed in one piece.",
  BAD_REPLY: "The signing program's answer could not be understood.",
  TIMEOUT: "There was no answer in time, and this page got no signature.",
  ABORTED: "This page withdrew its request, and nothing was signed.",
  ORIGIN_DENIED: "This site is not allowed to ask for signatures.",
  NOT_NOW: "Quillmark does not ask you about this page now. Go to the page and use its own button; if you have just refused its request, wait a little first.",
  TOO_MANY: "Too many requests are open. This page has to wait for their answers before it asks again.",
  DIGEST_UNSUITABLE: "This document's digest holds a zero byte and cannot be signed as it is. The page has to use another hash algorithm, or change the document slightly (a new time or document ID), and ask again.",
  DOCUMENT_REFUSED: "This document cannot be signed.",
  SIGNATURE_INVALID: "The signed document did not pass its check, and was thrown away. Try again; if this repeats, tell us which token it is.",
  TIMESTAMP_FAILED: "This page did not get a time stamp for the signature. Your token had signed already; that signature was thrown away, and this page did not get it. Try again later.",
  INVALID_ARGUMENT: "This page made a request that is not valid.",
});

/** The time, in milliseconds, that the user has for a request when `options.timeout` does not say otherwise. */
export const DEFAULT_TIMEOUT_MS = 120_000;

/** The longest time that a page can ask for: a request that nobody answers must not hold up those of other pages. */
export const MAX_TIMEOUT_MS = 600_000;

// Browsers take at most 1 MiB from a native program. The answer to signGstReturn is Base64 and holds the text itself;
// the room is for the certificate and the signature, which are a few KiB, and for the names around them.
const MAX_REPLY_BYTES = 1024 * 1024;
const SIGNED_DATA_ROOM = 32 * 1024;

/** The longest text, in UTF-8 bytes, that `signGstReturn` takes. */
export const MAX_GST_TEXT_BYTES = (MAX_REPLY_BYTES / 4) * 3 - SIGNED_DATA_ROOM;

// The extension answers a page's greeting at once; only a page without the extension waits as long as this.
const GREETING_MS = 2_000;

const HASH_ALGORITHMS = ["SHA-256", "SHA-384", "SHA-512"];

/** Why a request failed. */
export class QuillmarkError extends Error {
  /**
   * @param {string} code One of the names in `ERRORS`.
   * @param {{message?: string, detail?: string, ckr?: string, cause?: unknown}} [more] `detail` is technical: the
   *   signing program's or the browser's own text. `ckr` is the token's error by its PKCS#11 name.
   */
  constructor(code, { message, detail, ckr, cause } = {}) {
    super(message ?? ERRORS[code] ?? code, cause === undefined ? undefined : { cause });
    this.name = "QuillmarkError";
    this.code = code;
    this.detail = detail;
    this.ckr = ckr;
  }
}

// ---- what a page calls -----------------------------------------------------------------------------------------------

export async function status({ checkHost = false, signal } = {}) {
  try {
    return await ask("status", { checkHost }, { signal });
  } catch (error) {
    if (error.code !== "EXTENSION_MISSING") throw error;
    return { extension: null, permission: null, host: null, waiting: 0 };
  }
}

export function selectCertificate(options) {
  return ask("selectCertificate", {}, options);
}

export function signGstReturn(text, options) {
  return ask("signGstReturn", { text, hashAlgorithm: options?.hashAlgorithm }, options);
}

export function signItReturn(hash, pan, options) {
  return ask("signItReturn", { hash, pan, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signPdfHash(hash, certThumbPrint, options) {
  const text = typeof hash === "string" ? hash : toBase64(hash);
  return ask("signPdfHash", { hash: text, certThumbPrint, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signPdf(document, { name, reason, location, visible, ...options } = {}) {
  const [outcome] = await signPdfs([{ document, name, reason, location, visible }], options);
  if (outcome.status === "rejected") throw outcome.reason;
  return outcome.value;
}

export async function signPdfs(documents, { chain = [], timestamp, onResult, timeout = MAX_TIMEOUT_MS, ...options } = {}) {
  // What the page does with its bytes from here on changes nothing: a Blob cannot be changed.
  const blobs = documents.map(({ document }) => new Blob([document instanceof Blob ? document : octetsOf("document", document)]));
  const described = documents.map(({ document, name = document.name, reason, location, visible }, i) => ({
    name, reason, location, visible, size: blobs[i].size,
  }));
  const outcomes = new Outcomes(blobs, onResult);
  const answers = {
    piece: async ({ document, at, length }) => toBase64(await blobs[document].slice(at, at + length).arrayBuffer()),
    timeStamp: async ({ digest, request }) => toBase64(await timestamp(fromBase64(digest), fromBase64(request))),
    outcome: (outcome) => outcomes.take(outcome),
  };
  const values = {
    documents: JSON.stringify(described),
    chain: JSON.stringify(chain.map((each) => toBase64(octetsOf("chain", each)))),
    timestamp: typeof timestamp === "function",
  };
  try {
    await ask("signPdfs", values, { ...options, timeout, onQuery: ({ what, ...query }) => answers[what](query) });
  } catch (error) {
    if (outcomes.isEmpty) throw error;
    await outcomes.failRest(error);
  }
  return outcomes.all;
}

/** What has become of each document. */
class Outcomes {
  all;
  #blobs;
  #onResult;

  constructor(blobs, onResult) {
    this.#blobs = blobs;
    this.#onResult = onResult;
    this.all = blobs.map(() => undefined);
  }

  get isEmpty() {
    return this.all.every((outcome) => outcome === undefined);
  }

  // The extension gives what it has appended: all that comes before is the document as it was.
  async take({ document, appended, error }) {
    this.#settle(document, error
      ? { status: "rejected", reason: new QuillmarkError(error.code, error) }
      : { status: "fulfilled", value: octets(await new Blob([this.#blobs[document], fromBase64(appended)]).arrayBuffer()) });
    return "";
  }

  async failRest(reason) {
    this.all.forEach((outcome, i) => outcome ?? this.#settle(i, { status: "rejected", reason }));
  }

  #settle(i, outcome) {
    this.all[i] = outcome;
    this.#onResult?.(i, outcome);
  }
}

export function signAuthToken(token, options) {
  return ask("signAuthToken", { authToken: token, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signAuthTokenWithCertificate(token, { certificate, ...options } = {}) {
  const signer = certificate ?? (await selectCertificate(options));
  const signature = await signAuthToken(token, options);
  if (!(await hasSigned(signer, token, signature, options.hashAlgorithm))) throw new QuillmarkError("CERTIFICATE_NOT_FOUND");
  return { signature, certificate: signer };
}

async function hasSigned({ PublicKey }, text, signature, name = "SHA-256") {
  const algorithm = { name: "RSASSA-PKCS1-v1_5", hash: name.toUpperCase().replace(/^SHA-?/, "SHA-") };
  const key = await crypto.subtle.importKey("spki", publicKeyInfo(fromBase64(PublicKey)), algorithm, false, ["verify"]);
  return crypto.subtle.verify(algorithm, key, fromBase64(signature), new TextEncoder().encode(text));
}

// DER of rsaEncryption without parameters of its own (RFC 8017 appendix A.1).
const RSA_ENCRYPTION = [0x30, 13, 6, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 1, 1, 1, 5, 0];

/** The SubjectPublicKeyInfo (RFC 5280 section 4.1) around a PKCS#1 key, as WebCrypto takes it. */
const publicKeyInfo = (pkcs1) => der(0x30, [...RSA_ENCRYPTION, ...der(0x03, [0, ...pkcs1])]);

function der(tag, body) {
  const size = body.length < 0x80 ? [body.length] : body.length < 0x100 ? [0x81, body.length] : [0x82, body.length >> 8, body.length & 0xff];
  return Uint8Array.of(tag, ...size, ...body);
}

export async function suitableDigest(makeBytes, { maxAttempts = 20 } = {}) {
  const make = typeof makeBytes === "function" ? makeBytes : (attempt) => (attempt === 0 ? makeBytes : null);
  for (let attempt = 0; attempt < maxAttempts; attempt++) {
    const bytes = await make(attempt);
    if (!bytes) break;
    for (const hashAlgorithm of HASH_ALGORITHMS) {
      const digest = new Uint8Array(await crypto.subtle.digest(hashAlgorithm, bytes));
      if (!digest.includes(0)) return { hash: toBase64(digest), hashAlgorithm, bytes, attempt };
    }
  }
  throw new QuillmarkError("DIGEST_UNSUITABLE");
}

function toBase64(bytes) {
  const all = octetsOf("hash", bytes);
  if (all.toBase64) return all.toBase64();
  // In pieces, for a function takes only so many arguments.
  const pieces = [];
  for (let at = 0; at < all.length; at += 0x8000) pieces.push(String.fromCharCode(...all.subarray(at, at + 0x8000)));
  return btoa(pieces.join(""));
}

const fromBase64 = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));

function octetsOf(name, bytes) {
  if (!(bytes instanceof ArrayBuffer) && !ArrayBuffer.isView(bytes)) throw invalid(`${name} has to be bytes.`);
  return octets(bytes);
}

const octets = (bytes) =>
  ArrayBuffer.isView(bytes) ? new Uint8Array(bytes.buffer, bytes.byteOffset, bytes.byteLength) : new Uint8Array(bytes);

const invalid = (detail) => new QuillmarkError("INVALID_ARGUMENT", { detail });

// ---- the way to the extension ----------------------------------------------------------------------------------------

// The extension checks the values: it could trust no page to have done so.
async function ask(operation, values, options) {
  return (await connect()).send(operation, values, options);
}

/** @type {Promise<Connection> | undefined} */
let connection;

function connect() {
  if (!connection) {
    const opening = openConnection();
    connection = opening;
    opening.catch(() => forget(opening));
  }
  return connection;
}

function forget(opening) {
  if (connection === opening) connection = undefined;
}

// The extension's script in this page takes one end of a private channel. No other frame sees what passes through it,
// and the target "/" keeps the greeting itself within this document's origin.
function openConnection() {
  const { port1, port2 } = new MessageChannel();
  const opening = new Promise((resolve, reject) => {
    const timer = setTimeout(() => {
      port1.close();
      reject(new QuillmarkError("EXTENSION_MISSING"));
    }, GREETING_MS);
    port1.onmessage = ({ data }) => {
      if (data?.type !== "ready") return;
      clearTimeout(timer);
      resolve(new Connection(port1, () => forget(opening)));
    };
    window.postMessage({ quillmark: "connect" }, "/", [port2]);
  });
  return opening;
}

/** The channel to the extension, and the requests that wait for its answers. */
class Connection {
  #port;
  #onLost;
  #open = new Map();
  #lastId = 0;

  constructor(port, onLost) {
    this.#port = port;
    this.#onLost = onLost;
    port.onmessage = ({ data }) => this.#receive(data);
  }

  send(operation, values, { signal, timeout = DEFAULT_TIMEOUT_MS, onProgress, onQuery } = {}) {
    return new Promise((resolve, reject) => {
      const id = ++this.#lastId;
      const abort = () => {
        this.#port.postMessage({ type: "abort", id });
        this.#settle(id)?.reject(new QuillmarkError("ABORTED", { cause: signal.reason }));
      };
      if (signal?.aborted) throw new QuillmarkError("ABORTED", { cause: signal.reason });
      if (!(timeout > 0 && timeout <= MAX_TIMEOUT_MS)) throw invalid(`timeout has to be from 1 to ${MAX_TIMEOUT_MS} ms.`);
      this.#port.postMessage({ type: "request", id, operation, values, timeout });
      signal?.addEventListener("abort", abort);
      const finish = () => signal?.removeEventListener("abort", abort);
      this.#open.set(id, { resolve, reject, onProgress, onQuery, finish });
    });
  }

  #receive(message) {
    switch (message?.type) {
      case "progress":
        this.#open.get(message.id)?.onProgress?.(message.progress);
        break;
      case "query":
        void this.#reply(message);
        break;
      case "result":
        this.#settle(message.id)?.resolve(message.value);
        break;
      case "error":
        this.#settle(message.id)?.reject(new QuillmarkError(message.error.code, message.error));
        break;
      case "lost":
        this.#lose();
        break;
    }
  }

  // The extension asks for a piece of a document, or tells what became of one, and waits for the answer.
  async #reply({ id, number, query }) {
    let text = null;
    try {
      text = await this.#open.get(id)?.onQuery?.(query);
    } catch (error) {
      console.error(error); // the page's own, in what it does for the extension
    }
    this.#port.postMessage({ type: "reply", id, number, text });
  }

  #settle(id) {
    const request = this.#open.get(id);
    this.#open.delete(id);
    request?.finish();
    return request;
  }

  #lose() {
    this.#onLost();
    this.#port.close();
    for (const id of [...this.#open.keys()]) this.#settle(id).reject(new QuillmarkError("EXTENSION_MISSING"));
  }
}
