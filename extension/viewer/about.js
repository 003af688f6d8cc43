/** What the window says of a document. */

import { draw } from "../consent/characters.js";
import { counted, message, messageAround } from "../src/messages.js";
import { element } from "../src/pages.js";

export const summaryOf = ({ pages, bytes, signatures }) =>
  message(
    "documents_summary",
    counted("count_pages", pages),
    counted("count_bytes", bytes),
    signatures.length === 0 ? message("documents_unsigned") : counted("count_signatures", signatures.length),
  );

/** Fills the part of the window that tells of the document: {name, reason, location, facts}. */
export function showAbout({ name, reason, location, facts }) {
  draw(element("name"), name);
  element("facts").textContent = message("documents_facts", summaryOf(facts));
  element("sha256").textContent = `SHA-256 ${facts.sha256}`;
  element("signatures").replaceChildren(...facts.signatures.map(wordsOn));
  element("parts").hidden = facts.parts.length === 0;
  element("parts").textContent = message("documents_parts", facts.parts.join("; "));
  const added = [reason && message("documents_reason", reason), location && message("documents_place", location)].filter(Boolean);
  draw(element("adds"), added.length > 0 ? message("documents_adds", added.join("; ")) : "");
}

function wordsOn({ isWhole, coversAll, signer, kind }) {
  const item = document.createElement("li");
  const who = document.createElement("span");
  const [named, unnamed] = kind === "ETSI.RFC3161" ? ["signature_stamp", "signature_stamp_nobody"] : ["signature_by", "signature_nobody"];
  draw(who, signer ? message(named, signer) : message(unnamed));
  const state = document.createElement("span");
  state.textContent =
    isWhole === null ? message("signature_unchecked")
    : !isWhole ? message("signature_broken")
    : coversAll ? message("signature_whole")
    : message("signature_whole_before");
  if (isWhole === false) state.className = "broken";
  item.append(...messageAround("signature_line", who, state));
  return item;
}
