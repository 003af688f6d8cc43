/** Signs the documents that the window shows, one after another, and hands each out as it is done. */

import { commonName, extended, timeStampRequest, tokenIn } from "../src/pdf/cms.js";
import { checkFinished } from "../src/pdf/document.js";
import { withSignatureField } from "../src/pdf/field.js";
import { plain } from "../src/plain-error.js";
import { QuillmarkError } from "../quillmark.js";
import { fromBase64, toBase64 } from "../src/base64.js";
import { pictureOf } from "./picture.js";

// What a signature holds beside certificates, and what a time stamp holds with its authority's certificates.
const SIGNATURE_ROOM = 4096;
const TIME_STAMP_ROOM = 24 * 1024;

/** What is wrong with one document and not with the token. */
const OF_ONE_DOCUMENT = ["DOCUMENT_REFUSED", "SIGNATURE_INVALID", "TIMESTAMP_FAILED"];

/** The document with its field, as it will be but for the name and the time; `signer`: the name that stands in it. */
export function withField({ file, reason, location, place }, { signer, room = SIGNATURE_ROOM }) {
  const [left, bottom, right, top] = place?.rectangle ?? [];
  const picture = (time) => pictureOf({ signer, reason, time, width: right - left, height: top - bottom });
  const appearance = place && { ...place, picture };
  return withSignatureField(file, { signer, reason, location, room, time: new Date(), appearance });
}

/** Signs all of the `documents` that have no `error`; `onProgress(i)` is called before each. */
export async function signAll(background, documents, { chain, timestamp }, onProgress) {
  const record = await background.call("choose");
  const certificate = fromBase64(record.Cert);
  const others = chain.map(fromBase64);
  // The certificate stands in a signature once, and its issuer's name once more.
  const certificates = [certificate, certificate, ...others].reduce((sum, { length }) => sum + length, 0);
  const room = SIGNATURE_ROOM + certificates + (timestamp ? TIME_STAMP_ROOM : 0);
  const signer = commonName(certificate) || record.SelCertSubject;

  const signOne = async (document) => {
    const made = await withField(document, { signer, room });
    let signature = fromBase64(await background.call("sign", { hash: toBase64(made.digest) }));
    const token = timestamp ? await timeStampOf(background, signature) : undefined;
    if (token || others.length > 0) signature = extended(signature, { chain: others, token });
    const appended = made.insert(signature);
    await checkFinished(document.file, appended, certificate);
    // A page of it has turned out meanwhile not to be drawable.
    if (document.broken) throw document.broken;
    return appended;
  };

  for (const [i, document] of documents.entries()) {
    if (document.error) continue;
    onProgress(i);
    try {
      const appended = await signOne(document);
      await background.call("tell", { document: i, appended: toBase64(appended) });
    } catch (error) {
      // What the token could not do for one document it can do for none.
      if (!(error instanceof QuillmarkError && OF_ONE_DOCUMENT.includes(error.code))) throw error;
      await background.call("tell", { document: i, error: plain(error) });
    }
  }
}

async function timeStampOf(background, signature) {
  const query = await timeStampRequest(signature);
  const answer = await background.call("timeStamp", { digest: toBase64(query.digest), request: toBase64(query.request) });
  try {
    return await tokenIn(fromBase64(answer), query);
  } catch (cause) {
    throw new QuillmarkError("TIMESTAMP_FAILED", { detail: cause.message, cause });
  }
}
