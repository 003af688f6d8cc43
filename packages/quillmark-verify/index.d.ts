/** Why something is not accepted, for programs. The README says what to do about each. */
export type ErrorCode =
  | "INVALID_ARGUMENT"
  | "MALFORMED"
  | "WEAK_ALGORITHM"
  | "NOT_SIGNED"
  | "CONTENT_MISMATCH"
  | "CONTENT_APPENDED"
  | "SIGNATURE_INVALID"
  | "CHALLENGE_INVALID"
  | "CHALLENGE_EXPIRED"
  | "CERTIFICATE_UNTRUSTED"
  | "CERTIFICATE_EXPIRED"
  | "CERTIFICATE_NOT_YET_VALID"
  | "CERTIFICATE_UNSUITABLE"
  | "CERTIFICATE_REVOKED"
  | "REVOCATION_UNKNOWN"
  | "TIMESTAMP_INVALID";

/** What each code means, in words for developers. The codes are stable; the words may be improved. */
export const ERRORS: Readonly<Record<ErrorCode, string>>;

/** What every function here throws, or rejects with, and nothing else. */
export class VerificationError extends Error {
  constructor(code: ErrorCode, detail?: string, options?: { cause?: unknown });
  readonly name: "VerificationError";
  readonly code: ErrorCode;
  readonly cause?: unknown;
}

/** Bytes, or what Base64 says. */
export type Bytes = ArrayBuffer | ArrayBufferView | string;

/** A certificate as DER, as Base64 of that, or as PEM; a PEM text may have several. */
export type Certificates = Bytes | Bytes[];

export type HashAlgorithm = "SHA-256" | "SHA-384" | "SHA-512";

export interface Options {
  /** Whom you trust: authorities, and nobody who signs. Never take them from a request. */
  roots: Certificates;
  /** Authorities that may stand between a signer and a root. Those that come with a signature are tried as well. */
  intermediates?: Certificates;
  /** The time for which the verdict is, now when left out: say, when you received it. */
  at?: Date | number;
  /**
   * "require", when left out: every certificate of the chain but the root has to be known as not revoked. "if-available": none may
   * be known as revoked. "none": nobody is asked.
   */
  revocation?: "require" | "if-available" | "none";
  /** Revocation lists that you have (DER). */
  crls?: Bytes | Bytes[];
  /** OCSP responses that you have (DER). */
  ocspResponses?: Bytes | Bytes[];
  /**
   * Asks the addresses in the certificates where `crls` and `ocspResponses` do not say, by http alone, for ten seconds and 16 MiB each,
   * without redirects. The global `fetch` does. Where an address leads is yours to limit: authorities that you trust have written it,
   * but nothing here keeps it from naming a computer in your own network.
   */
  fetch?(
    url: string,
    init: { method: string; headers?: Record<string, string>; body?: ArrayBuffer; redirect: "error"; signal: AbortSignal },
  ): Promise<Response>;
  /**
   * Of the purposes that the signer's certificate names, one has to be among these (object identifiers). When left out: those for
   * logins, mail and documents. A certificate that names none is for all.
   */
  extendedKeyUsages?: string[];
}

/** What a certificate says of itself. Its texts are of anybody's making: escape them where you show them. */
export interface Identity {
  /** The first common name; "" when it has none. Names are not unique: know people by `thumbprint256`. */
  name: string;
  /** The first address; "" when it has none. */
  email: string;
  organization: string;
  /** The serial number, which its issuer gives once, in hexadecimal digits. */
  serial: string;
  /** The SHA-1 thumbprint, as the page library has it in `CertThumbPrint`. */
  thumbprint: string;
  /** The SHA-256 thumbprint. */
  thumbprint256: string;
  validFrom: Date;
  validTo: Date;
  /** The certificate (DER). */
  certificate: Uint8Array;
}

/** A signature that holds. */
export interface Verdict {
  signer: Identity;
  /** From the signer's certificate to one of the roots. */
  chain: Identity[];
  /** The time for which the chain holds: that of a trusted time stamp, otherwise `at`, otherwise now. */
  time: Date;
  /** "unknown" with "if-available" alone, "unchecked" with "none". */
  revocation: "good" | "unknown" | "unchecked";
  hashAlgorithm: HashAlgorithm;
}

/** A time stamp over a signature (RFC 3161). */
export interface TimeStamp {
  time: Date;
  /** Whether a chain leads to one of `timestampRoots`. Without these the time is what anybody may have written. */
  trusted: boolean;
  authority: Identity;
  chain: Identity[];
}

export interface TimeStampOptions {
  /**
   * Whose time stamps you trust. With a trusted one the signer's certificate has to hold at its time, and not at `at`; one that leads
   * to none of these makes the signature TIMESTAMP_INVALID.
   */
  timestampRoots?: Certificates;
}

export interface DigestVerdict extends Verdict {
  timestamp: TimeStamp | null;
}

/**
 * A text for the page library's `signAuthToken`: it names your site, which the user sees before he signs, the time and a random
 * number. Keep it where only this user's session finds it. `site` is a name without blanks; take your origin.
 */
export function newChallenge(options: { site: string }): string;

/**
 * Verifies the signature of `signAuthToken` over a challenge.
 *
 * `challenge` is the one that you kept, never one that comes with the signature. Remove it from where you keep it before you call
 * this, whatever comes of it: a challenge that is used once cannot be replayed. It has to name `site`, and to be no older than
 * `maxAge` milliseconds, 300,000 when left out. `certificate` is what the page got from `selectCertificate`; `hashAlgorithm` what it
 * signed with, "SHA-256" when left out.
 */
export function verifyAuthToken(
  options: Options & {
    signature: Bytes;
    challenge: string;
    site: string;
    certificate: Bytes;
    hashAlgorithm?: HashAlgorithm | "SHA256" | "SHA384" | "SHA512";
    maxAge?: number;
  },
): Promise<Verdict & { issuedAt: Date }>;

/**
 * Verifies what `signGstReturn` gave, and resolves to the text in it. With `text` it has to be this one. A text that begins as a
 * login's challenge does is refused.
 */
export function verifyGstReturn(options: Options & { cms: Bytes; text?: string }): Promise<Verdict & { text: string }>;

export interface PdfSignature extends DigestVerdict {
  /** What it is over: begin and length of the part before the signature's own place, and of the part behind it. */
  byteRange: [number, number, number, number];
  /** Whether nothing was added behind it. What was may change all that a reader shows; its signer has not seen it. */
  coversWholeFile: boolean;
}

/**
 * Verifies all signatures of a PDF file, in the order of what they cover: each is a detached SignedData (adbe.pkcs7.detached,
 * ETSI.CAdES.detached), and over the whole file of its time but its own place. The last one has to cover the whole file, unless
 * `allowAppended` is true.
 */
export function verifyPdf(
  options: Options & TimeStampOptions & { pdf: ArrayBuffer | ArrayBufferView; allowAppended?: boolean },
): Promise<{ signatures: PdfSignature[] }>;

/** Verifies what `signPdfHash` gave for a digest. With `hashAlgorithm` it has to be by this one. */
export function verifyPdfHash(
  options: Options &
    TimeStampOptions & { pkcs7: Bytes; hash: Bytes; hashAlgorithm?: HashAlgorithm | "SHA256" | "SHA384" | "SHA512" },
): Promise<DigestVerdict>;

/**
 * Verifies a compact JWS (RS256, RS384, RS512) whose header has the signer's certificate first in `x5c`; "x5t#S256" has to be its
 * thumbprint where it is there. What the payload is for, and for whom and when it was made, is yours to check.
 */
export function verifyJws(
  options: Options & { jws: string },
): Promise<Verdict & { payload: Uint8Array; header: Record<string, unknown> }>;
