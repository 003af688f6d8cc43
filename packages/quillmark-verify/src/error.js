/** Why something is not accepted: one class, and few codes. */

/** What each code means, in words for developers. The codes are stable; the words may be improved. */
export const ERRORS = Object.freeze({
  INVALID_ARGUMENT: "The function was called wrongly",
  MALFORMED: "What was handed in is not what Quillmark makes",
  WEAK_ALGORITHM: "An algorithm or key is weak, or unknown",
  NOT_SIGNED: "The document has no signature",
  CONTENT_MISMATCH: "Something else was signed",
  CONTENT_APPENDED: "Something was added behind the last signature",
  SIGNATURE_INVALID: "The certificate's key has not made this signature",
  CHALLENGE_INVALID: "The challenge is not one for this site",
  CHALLENGE_EXPIRED: "The challenge is too old",
  CERTIFICATE_UNTRUSTED: "No chain leads from the certificate to a root",
  CERTIFICATE_EXPIRED: "A certificate of the chain has expired",
  CERTIFICATE_NOT_YET_VALID: "A certificate of the chain is not valid yet",
  CERTIFICATE_UNSUITABLE: "The certificate is not one for signing",
  CERTIFICATE_REVOKED: "A certificate of the chain was revoked",
  REVOCATION_UNKNOWN: "Nobody says whether a certificate of the chain was revoked",
  TIMESTAMP_INVALID: "The time stamp does not hold",
});

/** `code` for programs, `message` for developers, `cause` where a library has thrown it. */
export class VerificationError extends Error {
  constructor(code, detail = "", { cause } = {}) {
    super(detail ? `${ERRORS[code]}: ${detail}` : `${ERRORS[code]}.`, cause === undefined ? undefined : { cause });
    this.name = "VerificationError";
    this.code = code;
  }
}

/** Calls `read`, and gives what it throws this code, unless it is a VerificationError already. */
export function translated(code, detail, read) {
  try {
    return read();
  } catch (cause) {
    throw cause instanceof VerificationError ? cause : new VerificationError(code, detail, { cause });
  }
}

/** The function, throwing nothing but a VerificationError. What a library makes of bytes that it cannot read is MALFORMED. */
export function guarded(verify) {
  return async (options) => {
    try {
      return await verify(Object(options));
    } catch (cause) {
      throw cause instanceof VerificationError ? cause : new VerificationError("MALFORMED", "", { cause });
    }
  };
}
