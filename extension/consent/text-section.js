// The part of the window that shows the text: as it is signed or laid out, its size and hash, and the search in it.

import { element } from "../src/pages.js";
import { layOut } from "./json-layout.js";
import { TextView } from "./text-view.js";

const numbered = (number, one, many) => `${number.toLocaleString()} ${number === 1 ? one : many}`;

/** Fills the section for a text with this SHA-256 and brings it into sight. */
export function showText(text, sha256) {
  const view = new TextView(element("text"));
  const bytes = new TextEncoder().encode(text).length;
  const characters = text.length - (text.match(/[\uD800-\uDBFF]/g)?.length ?? 0);
  element("size").textContent =
    `The whole text: ${numbered(characters, "character", "characters")}, ${numbered(bytes, "byte", "bytes")}.`;
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
  if (layout?.duplicates) {
    const repeats = numbered(layout.duplicates, "member repeats", "members repeat");
    return `${repeats} a name that its object has already; readers differ on which one counts.`;
  }
  const isTooMuch = layout === null && /^\s*[{[]/.test(text);
  return isTooMuch ? "This is no JSON, or too much of it: it is not laid out, and names that repeat are not looked for." : "";
}

function searchIn(view) {
  let matches = [];
  let at = 0;
  const go = (next) => {
    at = matches.length === 0 ? 0 : (next + matches.length) % matches.length;
    view.go(matches[at]);
    const wanted = element("wanted").value;
    element("found").textContent = wanted && (matches.length > 0 ? `${at + 1} of ${matches.length}` : "not in the text");
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
