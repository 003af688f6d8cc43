/**
 * How a text of somebody else is drawn, so that nothing in it hides, looks like nothing, or turns what stands around it.
 *
 * Everything stands in the order in which it is signed, from left to right. Words that are written from right to left are each
 * drawn in their own order, as one isolated run; what does not belong to such words stands outside of their runs.
 */

import { counted } from "../src/messages.js";

// Control, format, private and unassigned characters, all blanks but the plain one, those that fonts ignore, the blank Braille
// pattern. Line feed and tab are drawn as what they are.
const HIDDEN = "(?![ \\n\\t])[\\p{C}\\p{Z}\\p{Default_Ignorable_Code_Point}\\u2800]";

// Marks that strike out or cover the letter before them, and more marks on one letter than any language has.
const COVERING = "[\\u0334-\\u0338\\u0488\\u0489\\u20d0-\\u20f0\\u{1d159}]|\\p{M}{6}";

// What is written from right to left (the ranges of DerivedBidiClass.txt): letters, their marks, digits and signs.
const RIGHT_TO_LEFT = "[\\u0590-\\u08ff\\ufb1d-\\ufdff\\ufe70-\\ufefc\\u{10800}-\\u{10fff}\\u{1e800}-\\u{1efff}]";

// Of these, what a run is made of. All of it has one direction in a run, whatever stands beside it. Digits and signs have not.
const LETTER = `(?=${RIGHT_TO_LEFT})\\p{L}`;
const MARK = `(?!${HIDDEN}|${COVERING})(?:(?=${RIGHT_TO_LEFT})\\p{Mn}|[\\u0300-\\u036f])`;
const PUNCTUATION = "[\\u05be\\u05f3\\u05f4\\u060c\\u061b\\u061f\\u06d4]";

// Between letters they shape a word, and nobody sees them.
const JOINER = "[\\u200c\\u200d]";

// What comes behind so many blanks would be far out of sight.
const MANY_BLANKS = "[ \\n\\t]{100,}";
const FEW_BLANKS = " {1,99}";

// A word that touches another direction's letters or digits is no run: an alef beside zeros looks like a one.
const OTHERS = "[\\p{L}\\p{M}\\p{N}]";
const RUN =
  `(?<!${OTHERS})${LETTER}(?:${LETTER}|${MARK}|${PUNCTUATION}|${JOINER}(?=${LETTER})|${FEW_BLANKS}(?=${LETTER}))*(?!${OTHERS})`;

const NOT_PLAIN = new RegExp(
  `(?<run>${RUN})|(?<joiner>(?<=[\\p{L}\\p{M}])${JOINER})|(?<letter>${RIGHT_TO_LEFT})|(?<blanks>${MANY_BLANKS})|${COVERING}|${HIDDEN}`,
  "gu",
);
const IS_HIDDEN = new RegExp(HIDDEN, "u");
const AT_JOINERS = new RegExp(`(${JOINER})`, "u");

/**
 * Splits a text into pieces that can be drawn one after another, from left to right: {text} as it stands; {text, isRun} that is
 * read from right to left; or {text, mark} where a mark has to be drawn: the number "U+200B" of a character, or "250 blanks".
 * `isLetter`: it may be drawn beside its mark; `isJoiner`: it belongs to the letters before it.
 */
export function piecesOf(text) {
  const pieces = [];
  let end = 0;
  for (const { 0: found, index, groups } of text.matchAll(NOT_PLAIN)) {
    if (index > end) pieces.push({ text: text.slice(end, index) });
    pieces.push(groups.run ? { text: found, isRun: true } : marked(found, groups));
    end = index + found.length;
  }
  if (end < text.length) pieces.push({ text: text.slice(end) });
  return pieces;
}

function marked(text, { blanks, joiner, letter }) {
  const number = `U+${text.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;
  const mark = blanks ? counted("text_blanks", text.length) : number;
  if (joiner) return { text, mark, isJoiner: true };
  return { text, mark, isLetter: letter !== undefined && !IS_HIDDEN.test(text) };
}

/** The nodes that draw a text; ranges of it ({start, end, className}) stand in elements of that class. */
export function nodesOf(text, ranges = []) {
  let start = 0;
  return piecesOf(text).flatMap((piece) => {
    const leaves = piece.isRun ? leavesOf(piece.text) : [piece];
    const nodes = leaves.flatMap((leaf) => {
      const from = start;
      start += leaf.text.length;
      const inLeaf = ranges.filter((range) => range.start < start && range.end > from);
      return nodesOfLeaf(leaf, inLeaf.map((range) => ({ ...range, start: range.start - from, end: range.end - from })));
    });
    return piece.isRun ? [run(nodes)] : nodes;
  });
}

// A joiner in a run of words is marked as elsewhere, and leaves the words in their run.
const leavesOf = (text) =>
  text.split(AT_JOINERS).map((part, i) => (i % 2 === 1 ? marked(part, { joiner: part }) : { text: part })).filter((leaf) => leaf.text);

function nodesOfLeaf(leaf, ranges) {
  const { text } = leaf;
  if (leaf.mark) return inRanges([...(leaf.isJoiner ? [text] : []), markOf(leaf)], ranges);
  const cuts = ranges.flatMap((range) => [range.start, range.end]).filter((at) => at > 0 && at < text.length);
  const places = [...new Set([0, ...cuts, text.length])].sort((one, other) => one - other);
  return places.slice(1).flatMap((end, i) => {
    const start = places[i];
    return inRanges([text.slice(start, end)], ranges.filter((range) => range.start < end && range.end > start));
  });
}

function inRanges(nodes, ranges) {
  if (ranges.length === 0) return nodes;
  const element = document.createElement("mark");
  element.className = ranges.map(({ className }) => className).join(" ");
  element.append(...nodes);
  return [element];
}

function run(nodes) {
  const element = document.createElement("bdi");
  element.dir = "rtl";
  element.className = "run";
  element.append(...nodes);
  return element;
}

// No text can look like it, for it is no text.
function markOf({ text, mark, isLetter }) {
  const element = document.createElement("span");
  element.className = "mark";
  if (isLetter) element.append(text);
  const label = document.createElement("small");
  label.textContent = mark;
  element.append(label);
  return element;
}

/** Puts a text into an element, with its marks and in its order. */
export function draw(element, text, ranges) {
  element.classList.add("as-written");
  element.replaceChildren(...nodesOf(text, ranges));
}
