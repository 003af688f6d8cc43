/** What the window says of a document. */

import { draw } from "../consent/characters.js";
import { element } from "../src/pages.js";

export const numbered = (number, one, many) => `${number.toLocaleString()} ${number === 1 ? one : many}`;

export const summaryOf = ({ pages, bytes, signatures }) =>
  [
    numbered(pages, "page", "pages"),
    numbered(bytes, "byte", "bytes"),
    signatures.length === 0 ? "no signature yet" : numbered(signatures.length, "signature", "signatures"),
  ].join(", ");

/** Fills the part of the window that tells of the document: {name, reason, location, facts}. */
export function showAbout({ name, reason, location, facts }) {
  draw(element("name"), name);
  element("facts").textContent = `${summaryOf(facts)}.`;
  element("sha256").textContent = `SHA-256 ${facts.sha256}`;
  element("signatures").replaceChildren(...facts.signatures.map(wordsOn));
  element("parts").hidden = facts.parts.length === 0;
  element("parts").textContent = `Not shown here, or not always as here: ${facts.parts.join("; ")}.`;
  const added = [reason && `reason: ${reason}`, location && `place: ${location}`].filter(Boolean);
  draw(element("adds"), added.length > 0 ? `Your signature says: ${added.join("; ")}.` : "");
}

function wordsOn({ isWhole, coversAll, signer, kind }) {
  const item = document.createElement("li");
  const who = document.createElement("span");
  const what = kind === "ETSI.RFC3161" ? "A time stamp of" : "Signed by";
  draw(who, `${what} ${signer || "somebody without a name"}: `);
  const state = document.createElement("span");
  state.textContent =
    isWhole === null ? "a kind of signature that is not checked here."
    : !isWhole ? "broken. The document is not what was signed."
    : coversAll ? "whole. Who has issued the certificate is not checked here."
    : "whole, and something was added to the document later. Who has issued the certificate is not checked here.";
  if (isWhole === false) state.className = "broken";
  item.append(who, state);
  return item;
}
