/** JSON Web Signatures (RFC 7515) with the user's token. */

import { QuillmarkError, selectCertificate, signAuthTokenWithCertificate } from "quillmark";

const ALGORITHMS = { "SHA-256": "RS256", "SHA-384": "RS384", "SHA-512": "RS512" };

export async function signJws(payload, { hashAlgorithm = "SHA-256", header = {}, certificate, ...options } = {}) {
  if (!Object.hasOwn(ALGORITHMS, hashAlgorithm)) throw new QuillmarkError("UNSUPPORTED_HASH", { lang: options.lang });
  const signer = certificate ?? (await selectCertificate(options));
  const own = { alg: ALGORITHMS[hashAlgorithm], x5c: [signer.Cert], "x5t#S256": toBase64Url(await thumbprintOf(signer)) };
  const input = `${toBase64Url(utf8(JSON.stringify({ ...header, ...own })))}.${toBase64Url(octetsOf(payload))}`;
  const { signature } = await signAuthTokenWithCertificate(input, { ...options, hashAlgorithm, certificate: signer });
  return `${input}.${base64Url(signature)}`;
}

const thumbprintOf = async ({ Cert }) =>
  new Uint8Array(await crypto.subtle.digest("SHA-256", Uint8Array.from(atob(Cert), (character) => character.charCodeAt(0))));

const utf8 = (text) => new TextEncoder().encode(text);

function octetsOf(payload) {
  if (payload instanceof Uint8Array) return payload;
  return utf8(typeof payload === "string" ? payload : JSON.stringify(payload));
}

const toBase64Url = (bytes) => base64Url(btoa(Array.from(bytes, (byte) => String.fromCharCode(byte)).join("")));

const base64Url = (base64) => base64.replaceAll("+", "-").replaceAll("/", "_").replaceAll("=", "");
