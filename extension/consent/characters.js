/** Which characters of a text would hide, reorder others, or look like nothing, when they are drawn as they are. */

import { counted } from "../src/messages.js";

// Control, format, private and unassigned characters, all blanks but the plain one, those that fonts ignore, the blank Braille
// pattern. Line feed and tab are drawn as what they are.
const HIDDEN = "(?![ \\n\\t])[\\p{C}\\p{Z}\\p{Default_Ignorable_Code_Point}\\u2800]";

// Marks that strike out or cover the letter before them, and more marks on one letter than any language has.
const COVERING = "[\\u0334-\\u0338\\u0488\\u0489\\u20d0-\\u20f0\\u{1d159}]|\\p{M}{6}";

// Letters that are written from right to left (the ranges of DerivedBidiClass.txt), which would turn what stands around them.
const RIGHT_TO_LEFT =
  "[\\u0590-\\u08ff\\ufb1d-\\ufdff\\ufe70-\\ufefc\\u{10800}-\\u{10fff}\\u{1e800}-\\u{1efff}]";

// What comes behind so many blanks would be far out of sight.
const MANY_BLANKS = "[ \\n\\t]{100,}";

const MARKED = new RegExp(`(?<letter>${RIGHT_TO_LEFT})|(?<blanks>${MANY_BLANKS})|${COVERING}|${HIDDEN}`, "gu");
const IS_HIDDEN = new RegExp(HIDDEN, "u");

/**
 * Splits a text into pieces that can be drawn one after another: {text} as it stands, or {text, mark} where a mark has to be
 * drawn: the number "U+200B" of a character, or "250 blanks". `isLetter`: it may be drawn beside its mark.
 */
export function piecesOf(text) {
  const pieces = [];
  let end = 0;
  for (const { 0: marked, index, groups } of text.matchAll(MARKED)) {
    if (index > end) pieces.push({ text: text.slice(end, index) });
    const number = `U+${marked.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;
    const mark = groups.blanks ? counted("text_blanks", marked.length) : number;
    pieces.push({ text: marked, mark, isLetter: groups.letter !== undefined && !IS_HIDDEN.test(marked) });
    end = index + marked.length;
  }
  if (end < text.length) pieces.push({ text: text.slice(end) });
  return pieces;
}

/** The element that draws a piece's mark. No text can look like it, for it is no text. */
export function markOf({ text, mark, isLetter }) {
  const element = document.createElement("span");
  element.className = "mark";
  if (isLetter) element.append(text);
  const label = document.createElement("small");
  label.textContent = mark;
  element.append(label);
  return element;
}

/** Puts a short text into an element, with its marks. */
export function draw(element, text) {
  element.replaceChildren(...piecesOf(text).map((piece) => (piece.mark ? markOf(piece) : document.createTextNode(piece.text))));
}
