/** The signed text of a tax return: a SignedData with the text in it, and without signed attributes. */

import { nameOfHash } from "./algorithms.js";
import { looksLikeChallenge } from "./auth-token.js";
import { guarded, translated, VerificationError } from "./error.js";
import { bytesOf, settingsOf, textOf } from "./settings.js";
import { SignedData } from "./signed-data.js";
import { verdictOn } from "./verdict.js";

/** The browsers take no longer answer of the host's than 1 MiB. */
const MAX_BYTES = 1024 * 1024;

/** Verifies what `signGstReturn` gave; see index.d.ts. */
export const verifyGstReturn = guarded(async ({ cms, text, ...options }) => {
  const settings = settingsOf(options);
  const expected = text === undefined ? null : textOf(text, "text");
  const signed = new SignedData(bytesOf(cms, "cms", MAX_BYTES));
  const { content } = signed;
  if (content === null || signed.hasSignedAttributes)
    throw new VerificationError("MALFORMED", "It is the signature of something else.");
  if (expected !== null && !Buffer.from(expected).equals(content)) throw new VerificationError("CONTENT_MISMATCH");
  signed.checkOver(content);
  return {
    ...(await verdictOn(signed.certificate, settings, signed.certificates)),
    text: textIn(content),
    hashAlgorithm: nameOfHash(signed.hash),
  };
});

/** The host signs texts. Signed attributes of another signature are none, for their object identifiers are no UTF-8. */
function textIn(content) {
  const text = translated("CONTENT_MISMATCH", "It is no text.", () =>
    new TextDecoder("utf-8", { fatal: true, ignoreBOM: true }).decode(content),
  );
  if (looksLikeChallenge(text)) throw new VerificationError("CONTENT_MISMATCH", "It is the challenge of a login.");
  return text;
}
