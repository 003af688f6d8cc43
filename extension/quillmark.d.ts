/** A hash algorithm that the library signs with. "SHA256" and the like are taken as well. */
export type HashAlgorithm = "SHA-256" | "SHA-384" | "SHA-512";

/** What went wrong, for programs. The words for people are in `ERRORS`. */
export type ErrorCode =
  | "EXTENSION_MISSING"
  | "HOST_MISSING"
  | "HOST_EXITED"
  | "HOST_FORBIDDEN"
  | "USER_CANCELLED"
  | "TOKEN_MISSING"
  | "LOGIN_FAILED"
  | "KEY_NOT_FOUND"
  | "CERTIFICATE_NOT_FOUND"
  | "TOKEN_ERROR"
  | "UNSUPPORTED_HASH"
  | "UNKNOWN_ACTION"
  | "NOT_IMPLEMENTED"
  | "TOO_LARGE"
  | "BAD_REPLY"
  | "TIMEOUT"
  | "ABORTED"
  | "ORIGIN_DENIED"
  | "NOT_NOW"
  | "TOO_MANY"
  | "DIGEST_UNSUITABLE"
  | "DOCUMENT_REFUSED"
  | "SIGNATURE_INVALID"
  | "TIMESTAMP_FAILED"
  | "INSECURE_PAGE"
  | "INVALID_ARGUMENT";

/** Why, where a code alone does not tell: no PIN was typed (LOGIN_FAILED); the administrator has denied it (ORIGIN_DENIED). */
export type ErrorReason = "empty" | "policy";

/** What the user is told in English, by error code. The codes are stable; the words may be improved. */
export const ERRORS: Readonly<Record<ErrorCode, string>>;

/**
 * What the user is told about an error, in a language that a BCP 47 tag such as "hi-IN" names: English, Hindi, Tamil or German,
 * and English in the place of others. When left out it is that of the page, `document.documentElement.lang`.
 */
export function messageOf(code: ErrorCode, lang?: string, reason?: ErrorReason): string;

/** 120,000 ms: the time that the user has for a request when `options.timeout` does not say otherwise. */
export const DEFAULT_TIMEOUT_MS: number;

/** 600,000 ms: the longest `options.timeout`. */
export const MAX_TIMEOUT_MS: number;

/** The longest text, in UTF-8 bytes, that `signGstReturn` takes: its answer has to fit into the browsers' 1 MiB. */
export const MAX_GST_TEXT_BYTES: number;

/** Why a request failed: `code` for programs, `message` in words for people. */
export class QuillmarkError extends Error {
  constructor(code: ErrorCode, more?: { message?: string; reason?: ErrorReason; detail?: string; ckr?: string; cause?: unknown; lang?: string });
  readonly name: "QuillmarkError";
  readonly code: ErrorCode;
  readonly reason?: ErrorReason;
  /** Technical: the signing program's or the browser's own text, or what is wrong with an argument. */
  readonly detail?: string;
  /** Where there is one: the token's error by its PKCS#11 name, such as "CKR_DEVICE_ERROR". */
  readonly ckr?: string;
}

/** How far a request has come. */
export type Progress =
  /**
   * Other requests come first, possibly of other pages; of an allowed page `ahead` of them. The time limit does not run.
   */
  | { state: "waiting"; ahead?: number }
  /** The extension asks the user whether this site may ask. */
  | { state: "consent" }
  /** The signing program works on it, or waits for the user in its own window. */
  | { state: "working" };

export interface RequestOptions {
  /** Withdraws the request: it rejects with ABORTED, and windows that wait for the user's answer close. */
  signal?: AbortSignal;
  /**
   * The time in milliseconds that the user has, 120,000 when left out and at most 600,000. It runs while the user is
   * asked and the signing program works, not while other requests come first. Its end is the error TIMEOUT.
   */
  timeout?: number;
  /**
   * The language of an error's `message`, as of `messageOf`. Only what the extension has found in a document comes in the
   * language of the browser.
   */
  lang?: string;
  onProgress?(progress: Progress): void;
}

export interface SignOptions extends RequestOptions {
  /** "SHA-256" when left out. */
  hashAlgorithm?: HashAlgorithm | "SHA256" | "SHA384" | "SHA512";
}

/** A certificate on the token, as the signing program describes it. */
export interface Certificate {
  /** The subject's distinguished name, such as "C=IN, O=Example, CN=Asha Rao". */
  SelCertSubject: string;
  /** The SHA-1 thumbprint: 40 upper-case hexadecimal digits. What `signPdfHash` takes. */
  CertThumbPrint: string;
  /** The e-mail address, or "". */
  eMail: string;
  /** "2022-11-15T00:00:00Z" */
  ValidFrom: string;
  /** "Sat, 15 Nov 2025 00:00:00 GMT" */
  ExpDate: string;
  /** The public key (PKCS#1), DER in Base64. */
  PublicKey: string;
  /** The certificate, DER in Base64. */
  Cert: string;
  /** Whether it is a chain certificate; false for every certificate that a user can choose. */
  ChainCert: boolean;
  /** The token's name for the key pair. */
  CKA_ID: string;
}

export interface Status {
  /** The extension's version, or null when the extension is missing; the other members are then null and 0. */
  extension: string | null;
  /** Whether this page's origin may ask: "ask" means that the user will be asked at the first request. */
  permission: "allowed" | "ask" | "denied" | null;
  /** Whether the signing program runs. It starts by itself when it is needed. null for a page that is not allowed. */
  host: "running" | "stopped" | null;
  /** The number of requests, of all pages, that are being served or wait. 0 for a page that is not allowed. */
  waiting: number;
}

/**
 * Tells whether the extension is there and what this page may do. It opens no window and never asks the user.
 *
 * With `checkHost` it also starts the signing program and waits for a sign of life, and rejects with HOST_MISSING,
 * HOST_FORBIDDEN, HOST_EXITED or TIMEOUT when there is none; ORIGIN_DENIED when the user has not allowed this origin yet.
 */
export function status(options?: { checkHost?: boolean; signal?: AbortSignal; lang?: string }): Promise<Status>;

/** Lets the user choose one of the token's certificates. */
export function selectCertificate(options?: RequestOptions): Promise<Certificate>;

/**
 * Lets the user choose a certificate and signs `text` with it. Resolves to a CMS SignedData (RFC 5652) that holds the
 * text, its UTF-8 form, and the certificate: DER in Base64.
 *
 * A text longer than `MAX_GST_TEXT_BYTES` is refused with TOO_LARGE before the user is asked for anything.
 */
export function signGstReturn(text: string, options?: SignOptions): Promise<string>;

/**
 * Lets the user choose a certificate and asks for the signature of an income-tax return. Resolves to a raw RSA signature
 * in Base64.
 *
 * The signing program looks for the private key whose CKA_ID is the text `hash`, whatever certificate was chosen, and
 * does not read `pan`; without such a key the error is KEY_NOT_FOUND.
 */
export function signItReturn(hash: string, pan: string, options?: SignOptions): Promise<string>;

/** Where a signature is to be seen: points from the lower left corner of the page, whose number is 1 when left out. */
export interface SignaturePlace {
  page?: number;
  x: number;
  y: number;
  width: number;
  height: number;
}

export interface PdfDetails {
  /** The file's name, which the user is shown. That of a File when left out. */
  name?: string;
  /** Why and where it is signed: stands in the signature. */
  reason?: string;
  location?: string;
  /** A rectangle with the signer's name, the date and the reason: at a place, or with `true` where the user puts it. */
  visible?: boolean | SignaturePlace;
}

export interface PdfOptions extends RequestOptions {
  /** Certificates (DER) that go into each signature beside the signer's. */
  chain?: (ArrayBuffer | ArrayBufferView)[];
  /**
   * Gets a time stamp for a signature: of its digest (SHA-256), from an authority's answer (RFC 3161, DER). `request` is the
   * request for it, as authorities take it by HTTP: `(digest, request) => fetch(url, { method: "POST", body: request, … })`.
   * It has a minute to answer.
   */
  timestamp?(digest: Uint8Array, request: Uint8Array): Promise<ArrayBuffer | ArrayBufferView>;
}

/**
 * Shows the user a PDF document in the extension's own window, and signs it when he wants it: with the certificate that he
 * chooses there. Resolves to the signed file: the document's bytes, and the signature behind them. Like every question it
 * follows a click or key of the user's in the page, also on a site that is allowed.
 *
 * `document` is read before the function returns or, a Blob, cannot be changed anyway: what is shown is what is signed.
 * A document that cannot be signed is DOCUMENT_REFUSED, and `message` says why. `options.timeout` is 600,000 when left out.
 */
export function signPdf(
  document: ArrayBuffer | ArrayBufferView | Blob,
  options?: PdfDetails & PdfOptions,
): Promise<Uint8Array>;

/** What became of one document. */
export type PdfOutcome =
  | { status: "fulfilled"; value: Uint8Array }
  | { status: "rejected"; reason: QuillmarkError };

/**
 * The same for up to 100 documents, with one question, one certificate and one PIN. Resolves to what became of each, in their
 * order; a failure leaves the others whole. `onResult` is called with each outcome as it comes. Rejects when none was begun.
 */
export function signPdfs(
  documents: ({ document: ArrayBuffer | ArrayBufferView | Blob } & PdfDetails)[],
  options?: PdfOptions & { onResult?(index: number, outcome: PdfOutcome): void },
): Promise<PdfOutcome[]>;

/**
 * Signs the digest of a PDF file's byte ranges with the certificate of this thumbprint. Resolves to a detached PKCS#7
 * SignedData, DER in Base64, ready for the signature dictionary's Contents.
 *
 * Nobody can see what a digest stands for, so the user signs blind, and has to trust the page. Prefer `signPdf`, which shows the
 * document that it signs, and does the PDF work.
 *
 * `hash` is the digest, as bytes or Base64, made with `options.hashAlgorithm`. One that holds a zero byte (of SHA-256,
 * about one in eight) is refused at once with DIGEST_UNSUITABLE; `suitableDigest` avoids it.
 *
 * No window opens when the user has already chosen this certificate for this origin since the signing program was started;
 * otherwise the user chooses first, and the error is CERTIFICATE_NOT_FOUND when the choice is another certificate.
 */
export function signPdfHash(
  hash: string | ArrayBuffer | ArrayBufferView,
  certThumbPrint: string,
  options?: SignOptions,
): Promise<string>;

/**
 * Lets the user choose a certificate and signs `token`, its UTF-8 form. Resolves to a raw RSA signature (PKCS#1 v1.5) in
 * Base64.
 */
export function signAuthToken(token: string, options?: SignOptions): Promise<string>;

/** A signature of `signAuthTokenWithCertificate`, raw RSA (PKCS#1 v1.5) in Base64, and who has made it. */
export interface SignatureWithCertificate {
  signature: string;
  certificate: Certificate;
}

/**
 * The same with the certificate that has signed, which a server needs to verify. The user chooses it first, unless
 * `options.certificate` is one that `selectCertificate` gave, and once more when it signs: with another choice there the error
 * is CERTIFICATE_NOT_FOUND.
 */
export function signAuthTokenWithCertificate(
  token: string,
  options?: SignOptions & { certificate?: Certificate },
): Promise<SignatureWithCertificate>;

/** A digest without a zero byte, and the bytes that it is of. */
export interface SuitableDigest<Bytes> {
  /** The digest in Base64. */
  hash: string;
  hashAlgorithm: HashAlgorithm;
  bytes: Bytes;
  /** Which variant of the document it is: the number that `makeBytes` was called with. */
  attempt: number;
}

/**
 * Finds a digest that `signPdfHash` takes. For each variant of the document it tries SHA-256, SHA-384 and SHA-512.
 *
 * `makeBytes` is the bytes themselves when the document cannot be varied, or a function that makes variant 0, 1, 2, ...
 * of them (a fresh /ID or time in the signature's dictionary is enough) and returns null when there are no more. Without
 * a variant, about one document in 220 has no suitable digest; the error is then DIGEST_UNSUITABLE.
 */
export function suitableDigest<Bytes extends ArrayBuffer | ArrayBufferView>(
  makeBytes: Bytes | ((attempt: number) => Bytes | null | Promise<Bytes | null>),
  options?: { maxAttempts?: number; lang?: string },
): Promise<SuitableDigest<Bytes>>;
