/** Bytes in the form in which they travel. Newer browsers do it themselves, and faster. */

export function fromBase64(text) {
  if (Uint8Array.fromBase64) return Uint8Array.fromBase64(text);
  const characters = atob(text);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < bytes.length; i++) bytes[i] = characters.charCodeAt(i);
  return bytes;
}

export function toBase64(bytes) {
  if (bytes.toBase64) return bytes.toBase64();
  // In pieces, for a function takes only so many arguments.
  const pieces = [];
  for (let at = 0; at < bytes.length; at += 0x8000) pieces.push(String.fromCharCode(...bytes.subarray(at, at + 0x8000)));
  return btoa(pieces.join(""));
}

/** Whether a text is nothing but Base64, on one line. */
export const isBase64 = (text) => /^[A-Za-z0-9+/]+={0,2}$/.test(text);
