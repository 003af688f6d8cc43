/** Bytes in the form in which they travel. */

export const fromBase64 = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));

export function toBase64(bytes) {
  // In pieces, for a function takes only so many arguments.
  const pieces = [];
  for (let at = 0; at < bytes.length; at += 0x8000) pieces.push(String.fromCharCode(...bytes.subarray(at, at + 0x8000)));
  return btoa(pieces.join(""));
}
