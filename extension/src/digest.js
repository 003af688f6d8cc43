/** Digests in hexadecimal. */

export const hex = (bytes) => Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("");

/** `algorithm` as WebCrypto names it. */
export async function digestOf(algorithm, bytes) {
  return hex(new Uint8Array(await crypto.subtle.digest(algorithm, bytes)));
}

/** The SHA-256 of a text's UTF-8 form. */
export const sha256Hex = (text) => digestOf("SHA-256", new TextEncoder().encode(text));
