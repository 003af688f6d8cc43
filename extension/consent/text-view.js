/** A text of any length in a scrolling element: drawn in parts as they come into sight, searchable as a whole. */

import { draw } from "./characters.js";

const PART_CHARACTERS = 16 * 1024;
/** So many parts are drawn at once; of longer texts those near to what is in sight. */
const PARTS_AT_ONCE = 16;
const MAX_MATCHES = 10_000;
const ROUGH_LINE = { characters: 60, pixels: 19 };

export class TextView {
  #element;
  #text = "";
  #ranges = [];
  #parts = [];
  #match;
  #sight;

  /** `element` scrolls. */
  constructor(element) {
    this.#element = element;
  }

  /** Shows a text; `ranges` of it ({start, end, className}) are drawn in an element of that class. */
  show(text, ranges = []) {
    this.#text = text;
    this.#ranges = ranges;
    this.#match = undefined;
    this.#sight?.disconnect();
    this.#parts = partsOf(text);
    this.#element.replaceChildren(...this.#parts.map(({ element }) => element));
    this.#element.scrollTop = 0;
    if (this.#parts.length <= PARTS_AT_ONCE) return this.#parts.forEach((part) => this.#draw(part));
    const onChange = (entries) => {
      for (const { target, isIntersecting } of entries) {
        const part = this.#parts[Number(target.dataset.part)];
        if (isIntersecting) this.#draw(part);
        else this.#clear(part);
      }
    };
    this.#sight = new IntersectionObserver(onChange, { root: this.#element, rootMargin: "2000px 0px" });
    for (const part of this.#parts) {
      this.#clear(part);
      this.#sight.observe(part.element);
    }
  }

  /** The places of a text that people look for, whatever its case: [{start, end}], at most 10,000. */
  find(wanted) {
    if (wanted === "") return [];
    const pattern = new RegExp(wanted.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"), "giu");
    const matches = [];
    for (const { 0: found, index } of this.#text.matchAll(pattern)) {
      matches.push({ start: index, end: index + found.length });
      if (matches.length === MAX_MATCHES) break;
    }
    return matches;
  }

  /** Brings a place into sight and marks it; undefined marks nothing. */
  go(match) {
    const before = this.#match;
    this.#match = match && { ...match, className: "found" };
    for (const part of this.#parts) {
      if (part.isDrawn && [before, match].some((range) => range && overlaps(range, part))) this.#draw(part);
    }
    if (!match) return;
    const part = this.#parts.find((each) => match.start < each.end);
    this.#draw(part);
    part.element.querySelector(".found")?.scrollIntoView({ block: "center" });
  }

  #draw(part) {
    const ranges = [...this.#ranges, ...(this.#match ? [this.#match] : [])].filter((range) => overlaps(range, part));
    const inPart = ranges.map(({ start, end, className }) => ({ start: start - part.start, end: end - part.start, className }));
    draw(part.element, this.#text.slice(part.start, part.end), inPart);
    part.element.style.height = "";
    part.isDrawn = true;
  }

  #clear(part) {
    const { height } = part.element.getBoundingClientRect();
    part.element.style.height = `${part.isDrawn ? height : part.roughHeight}px`;
    part.element.replaceChildren();
    part.isDrawn = false;
  }
}

const overlaps = (one, other) => one.start < other.end && one.end > other.start;

// Cut behind the end of a line where there is one, and never within a character.
function partsOf(text) {
  const parts = [];
  for (let start = 0; start < text.length; ) {
    let end = Math.min(start + PART_CHARACTERS, text.length);
    const lineEnd = text.slice(start, end).lastIndexOf("\n") + 1;
    if (end < text.length && lineEnd > 0) end = start + lineEnd;
    else if (end < text.length && /[\uD800-\uDBFF]/.test(text[end - 1])) end--;
    const element = document.createElement("div");
    element.className = "part";
    element.dataset.part = String(parts.length);
    // What only ends here because the part does goes on in the next line.
    element.classList.toggle("goes-on", end < text.length && text[end - 1] !== "\n");
    const lines = text.slice(start, end).split("\n").length + (end - start) / ROUGH_LINE.characters;
    parts.push({ start, end, element, isDrawn: false, roughHeight: lines * ROUGH_LINE.pixels });
    start = end;
  }
  return parts;
}
