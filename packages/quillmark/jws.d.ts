import type { Certificate, RequestOptions } from "quillmark";

export interface JwsOptions extends RequestOptions {
  /** "SHA-256" when left out: RS256. The others are RS384 and RS512. */
  hashAlgorithm?: "SHA-256" | "SHA-384" | "SHA-512";
  /** More members of the protected header, such as `typ` or `kid`. `alg`, `x5c` and `x5t#S256` are set by the signature. */
  header?: Record<string, unknown>;
  /** What an earlier `selectCertificate` gave; the user is asked for one when left out. */
  certificate?: Certificate;
}

/**
 * Signs a payload as a JWS in its compact form (RFC 7515 section 7.1), with the certificate in `x5c` and its SHA-256 thumbprint
 * in `x5t#S256`. Bytes and texts are signed as they are, other values as their JSON.
 *
 * The user chooses the certificate first, for it stands in what is signed, and once more when it is signed. Rejects with
 * CERTIFICATE_NOT_FOUND when that is another one.
 */
export function signJws(payload: string | Uint8Array | object, options?: JwsOptions): Promise<string>;
