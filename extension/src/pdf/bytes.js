/** Bytes, as the work on PDF files needs them. */

/** Each byte as the character of its number; those from 128 to 159 as Windows has them. */
export const latin1 = (bytes) => new TextDecoder("latin1").decode(bytes);

export function joined(pieces) {
  const whole = new Uint8Array(pieces.reduce((sum, { length }) => sum + length, 0));
  let at = 0;
  for (const piece of pieces) {
    whole.set(piece, at);
    at += piece.length;
  }
  return whole;
}

/** Whether both are there and the same. */
export const sameBytes = (one, other) => one?.length === other.length && other.every((byte, i) => byte === one[i]);
