// The part of the window that shows the text: as it is signed or laid out, its size and hash, and the search in it.

import { counted, message } from "../src/messages.js";
import { element } from "../src/pages.js";
import { layOut } from "./json-layout.js";
import { TextView } from "./text-view.js";

/** Fills the section for a text with this SHA-256 and brings it into sight. */
export function showText(text, sha256) {
  const view = new TextView(element("text"));
  const bytes = new TextEncoder().encode(text).length;
  const characters = text.length - (text.match(/[\uD800-\uDBFF]/g)?.length ?? 0);
  element("size").textContent = message("text_size", counted("count_characters", characters), counted("count_bytes", bytes));
  element("sha256").textContent = sha256;
  const layout = layOut(text);
  element("layouts").hidden = layout === null;
  const notice = noticeOn(text, layout);
  element("duplicates").hidden = notice === "";
  element("duplicates").textContent = notice;
  const search = searchIn(view);
  for (const input of element("layouts").querySelectorAll("input")) {
    input.addEventListener("change", () => {
      view.show(...(input.value === "laid-out" ? [layout.text, layout.ranges] : [text]));
      search.again();
    });
  }
  view.show(text);
  element("text-section").hidden = false;
}

function noticeOn(text, layout) {
  if (layout?.duplicates) return counted("text_duplicates", layout.duplicates);
  const isTooMuch = layout === null && /^\s*[{[]/.test(text);
  return isTooMuch ? message("text_no_layout") : "";
}

function searchIn(view) {
  let matches = [];
  let at = 0;
  const go = (next) => {
    at = matches.length === 0 ? 0 : (next + matches.length) % matches.length;
    view.go(matches[at]);
    const wanted = element("wanted").value;
    element("found").textContent = wanted && (matches.length > 0 ? message("text_found", at + 1, matches.length) : message("text_not_found"));
  };
  const again = () => {
    matches = view.find(element("wanted").value);
    go(0);
  };
  element("wanted").addEventListener("input", again);
  element("search").addEventListener("submit", (event) => {
    event.preventDefault();
    go(at + (event.submitter?.value === "previous" ? -1 : 1));
  });
  return { again };
}
