/**
 * A PDF file's objects, found as its own cross-reference says and in no other way: what is added to a file refers to that, and
 * a reader that searches the file for objects instead may find others.
 */

import { PDFArray, PDFContext, PDFDict, PDFName, PDFNumber, PDFRawStream, PDFRef } from "../../libraries/pdf-lib.js";
import { MAX_PDF_BYTES, MAX_PDF_OBJECTS, MAX_PDF_PAGES, MAX_PDF_STREAM_BYTES } from "../limits.js";
import { latin1 } from "./bytes.js";
import { Parser } from "./parser.js";
import { AMBIGUOUS, orRefuse, refusal } from "./refusal.js";
import { inflated } from "./streams.js";

export const name = (text) => PDFName.of(text);

const DAMAGED = "refusal_damaged";
const CUT_SHORT = "refusal_cut_short";

// Where readers look for the head and the end (ISO 32000-1, annex H.3).
const SEARCHED = 1024;

/** A file that was changed as often has a section for each time. */
const MAX_SECTIONS = 1024;

export class PdfFile {
  /** The members of the newest trailer. */
  trailer;
  /** Where the newest cross-reference begins, and whether it is a stream. */
  startxref;
  hasXrefStream = false;
  #entries = new Map();
  #objects = new Map();
  #streams = new Map();
  /** By the place of a table's stream for newer readers: the numbers that are free in the table. */
  #hiddenIn = new Map();
  #pages;
  #unpacked = 0;
  #highest = 0;
  context = PDFContext.create();

  /** Reads the bytes of a file. Throws DOCUMENT_REFUSED for one that cannot be extended. */
  constructor(bytes) {
    this.bytes = bytes;
    if (bytes.length > MAX_PDF_BYTES) throw refusal("refusal_large", MAX_PDF_BYTES / 1024 / 1024);
    checkHead(bytes);
    checkLinearization(bytes);
    this.startxref = startxrefOf(bytes);
    orRefuse(DAMAGED, () => this.#readSections());
    if (this.trailer.has(name("Encrypt"))) throw refusal("refusal_encrypted");
    if (!(this.trailer.get(name("Root")) instanceof PDFRef)) throw refusal(DAMAGED);
  }

  /** The number that a new object may have. */
  get size() {
    return this.#highest + 1;
  }

  /** The numbers of all objects in use. */
  get numbers() {
    return [...this.#entries].filter(([, entry]) => entry !== null).map(([number]) => number);
  }

  /** What a reference stands for, or the object itself when it is none; undefined for what is not there. */
  get(object) {
    for (let hops = 0; object instanceof PDFRef; hops++) {
      if (hops > 20) throw refusal(DAMAGED);
      const entry = this.#entries.get(object.objectNumber);
      // Readers differ in what they make of another generation: some search the file for it.
      if (entry && (entry.generation ?? 0) !== object.generationNumber) throw refusal(DAMAGED);
      object = this.#load(object.objectNumber);
    }
    return object;
  }

  /** The object of this number. */
  objectOf(number) {
    return this.#load(number);
  }

  /** Lets go of what was read and unpacked; what is wanted again is read again. */
  forget() {
    this.#objects.clear();
    this.#streams.clear();
    this.#unpacked = 0;
  }

  /** A dictionary's member, of this type when one is given; undefined when it is missing or of another one. */
  member(dictionary, key, Type) {
    const value = this.get(dictionary?.get(name(key)));
    return Type && !(value instanceof Type) ? undefined : value;
  }

  /** A page's member, which it has from the nodes above when it has none of its own (7.7.3.4). */
  inherited(page, key) {
    let node = this.get(page);
    for (let hops = 0; node && hops < 50; hops++) {
      const value = this.member(node, key);
      if (value !== undefined) return value;
      node = this.member(node, "Parent", PDFDict);
    }
    return undefined;
  }

  get catalog() {
    const catalog = this.get(this.trailer.get(name("Root")));
    if (!(catalog instanceof PDFDict)) throw refusal(DAMAGED);
    return catalog;
  }

  #load(number) {
    if (!this.#objects.has(number)) {
      const entry = this.#entries.get(number);
      const object = entry && orRefuse(DAMAGED, () => (entry.stream ? this.#inStream(entry) : this.#at(entry.offset, { number, generation: entry.generation })));
      this.#objects.set(number, object ?? undefined);
    }
    return this.#objects.get(number);
  }

  #at(offset, entry) {
    const head = /^\s*(\d+)\s+(\d+)\s+obj\b/.exec(latin1(this.bytes.subarray(offset, offset + 64)));
    if (!head || (entry && (Number(head[1]) !== entry.number || Number(head[2]) !== entry.generation))) throw refusal(DAMAGED);
    return this.#parse(this.bytes.subarray(offset + head[0].length));
  }

  #parse(bytes) {
    return Parser.forBytes(bytes, this.context).parseObject();
  }

  #inStream({ stream, index }) {
    if (!this.#streams.has(stream)) this.#streams.set(stream, this.#openStream(stream));
    const { content, offsets } = this.#streams.get(stream);
    return this.#parse(content.subarray(offsets[index]));
  }

  // ISO 32000-1, 7.5.7: pairs of object numbers and offsets, then the objects.
  #openStream(number) {
    const entry = this.#entries.get(number);
    if (!entry || entry.stream) throw refusal(DAMAGED);
    const stream = this.#at(entry.offset, { number, generation: entry.generation });
    const content = inflated(stream, this);
    this.#unpacked += content.length;
    if (this.#unpacked > MAX_PDF_STREAM_BYTES) throw refusal("refusal_large_parts");
    const first = this.member(stream.dict, "First", PDFNumber).asNumber();
    const pairs = latin1(content.subarray(0, first)).trim().split(/\s+/).map(Number);
    return { content, offsets: pairs.filter((_, i) => i % 2 === 1).map((offset) => first + offset) };
  }

  // ---- the cross-reference, newest section first: an entry that is there already counts

  #readSections() {
    const seen = new Set();
    const sections = [this.startxref];
    while (sections.length > 0) {
      const offset = sections.shift();
      if (seen.has(offset) || seen.size > MAX_SECTIONS || !(offset >= 0 && offset < this.bytes.length)) throw refusal(DAMAGED);
      seen.add(offset);
      const { dictionary, free } = this.#readSection(offset);
      this.trailer ??= dictionary;
      const hidden = dictionary.get(name("XRefStm"))?.asNumber();
      if (hidden !== undefined) this.#hiddenIn.set(hidden, free);
      // A table's stream for newer readers comes before older sections (7.5.8.4).
      sections.unshift(...["XRefStm", "Prev"].flatMap((key) => dictionary.get(name(key))?.asNumber() ?? []));
    }
  }

  #readSection(offset) {
    const isTable = /^\s*xref\b/.test(latin1(this.bytes.subarray(offset, offset + 64)));
    if (!this.trailer) this.hasXrefStream = !isTable;
    return isTable ? this.#readTable(offset) : { dictionary: this.#readStream(offset), free: new Set() };
  }

  // 7.5.4
  #readTable(offset) {
    const free = new Set();
    let at = offset + /^\s*xref\s+/.exec(latin1(this.bytes.subarray(offset, offset + 64)))[0].length;
    for (;;) {
      const line = latin1(this.bytes.subarray(at, at + 64));
      const head = /^\s*(\d+)\s+(\d+)\s+(?=\d|trailer)/.exec(line);
      if (!head) break;
      at += head[0].length;
      const [first, count] = [Number(head[1]), Number(head[2])];
      this.#checkNumber(first + count);
      for (let i = 0; i < count; i++) {
        const entry = /^\s*(\d{10}) (\d{5}) ([nf])(?:\s+|$)/.exec(latin1(this.bytes.subarray(at, at + 24)));
        at += entry[0].length;
        if (entry[3] === "f") free.add(first + i);
        this.#note(first + i, entry[3] === "n" ? { offset: Number(entry[1]), generation: Number(entry[2]) } : null);
      }
    }
    const trailer = /^\s*trailer\s*/.exec(latin1(this.bytes.subarray(at, at + 64)));
    return { dictionary: this.#parse(this.bytes.subarray(at + trailer[0].length)), free };
  }

  // 7.5.8
  #readStream(offset) {
    const stream = this.#at(offset);
    if (!(stream instanceof PDFRawStream) || stream.dict.get(name("Type")) !== name("XRef")) throw refusal(DAMAGED);
    const numbers = (key) => stream.dict.get(name(key))?.asArray().map((each) => each.asNumber());
    const widths = numbers("W");
    const index = numbers("Index") ?? [0, stream.dict.get(name("Size")).asNumber()];
    const content = inflated(stream, this);
    let at = 0;
    const field = (width, missing) => {
      if (width === 0) return missing;
      if (at + width > content.length) throw refusal(DAMAGED);
      at += width;
      return content.subarray(at - width, at).reduce((sum, byte) => sum * 256 + byte, 0);
    };
    for (let i = 0; i < index.length; i += 2) {
      this.#checkNumber(index[i] + index[i + 1]);
      for (let number = index[i]; number < index[i] + index[i + 1]; number++) {
        const [type, second, third] = [field(widths[0], 1), field(widths[1], 0), field(widths[2], 0)];
        // What a reader makes of other types is its own.
        if (type > 2) throw refusal(DAMAGED);
        // Objects that only newer readers see: others show another document.
        if (type > 0 && this.#hiddenIn.get(offset)?.has(number)) throw refusal(AMBIGUOUS);
        this.#note(number, [null, { offset: second, generation: third }, { stream: second, index: third }][type]);
      }
    }
    return stream.dict;
  }

  #checkNumber(number) {
    if (!(number <= MAX_PDF_OBJECTS)) throw refusal("refusal_many_parts");
  }

  #note(number, entry) {
    this.#highest = Math.max(this.#highest, number);
    if (!this.#entries.has(number)) this.#entries.set(number, entry);
  }

  /** The generation of an object that is changed: 0 in streams, as it was elsewhere. */
  generationOf(number) {
    return this.#entries.get(number)?.generation ?? 0;
  }

  /** The pages in their order, as references. */
  get pages() {
    return (this.#pages ??= this.#findPages());
  }

  #findPages() {
    const pages = [];
    const seen = new Set();
    const visit = (ref) => {
      if (seen.has(ref)) throw refusal(DAMAGED);
      seen.add(ref);
      const node = this.get(ref);
      if (!(node instanceof PDFDict)) throw refusal(DAMAGED);
      const kids = this.member(node, "Kids", PDFArray);
      if (kids) for (const kid of kids.asArray()) visit(kid);
      else pages.push(ref);
      if (pages.length > MAX_PDF_PAGES) throw refusal("refusal_many_pages", MAX_PDF_PAGES);
    };
    orRefuse(DAMAGED, () => visit(this.catalog.get(name("Pages"))));
    if (pages.length === 0) throw refusal("refusal_no_pages");
    return pages;
  }
}

function checkHead(bytes) {
  const head = latin1(bytes.subarray(0, SEARCHED));
  if (/^%PDF-[12]\.\d/.test(head)) return;
  if (head.includes("%PDF-")) throw refusal("refusal_before_beginning");
  throw refusal("refusal_no_pdf");
}

// Readers take a file whose first object says that it is linearised, and as long as it is, from its begin instead of its end
// (annex F). With the signature behind it a file is longer than it was: what promises a greater length than the present one
// would be read in another way then.
function checkLinearization(bytes) {
  const first = /^[^]*?\bobj\b([^]*?)(?:\bendobj\b|$)/.exec(latin1(bytes.subarray(0, 4 * SEARCHED)))?.[1] ?? "";
  const plain = first.replace(/#([0-9a-fA-F]{2})/g, (_, code) => String.fromCharCode(parseInt(code, 16)));
  const promises = (plain.match(/\d+/g) ?? []).map(Number);
  if (plain.includes("Linearized") && promises.some((number) => number > bytes.length)) throw refusal(DAMAGED);
}

function startxrefOf(bytes) {
  const end = latin1(bytes.subarray(-SEARCHED));
  const found = /startxref\s+(\d+)\s+%%EOF[\s\0]*$/.exec(end);
  if (!found) throw refusal(CUT_SHORT);
  return Number(found[1]);
}
