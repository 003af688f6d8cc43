/** What is appended to a PDF file to change it: the bytes before stay as they are (ISO 32000-1, 7.5.6). */

import { PDFArray, PDFDict, PDFHexString, PDFNumber, PDFRawStream, PDFRef } from "../../libraries/pdf-lib.js";
import { hex } from "../digest.js";
import { joined } from "./bytes.js";
import { name } from "./file.js";

const ascii = (text) => new TextEncoder().encode(text);

const NEWLINE = 10;

/** Objects that are new or changed, and the bytes that they make behind a file. */
export class Update {
  #file;
  #next;
  #objects = new Map();

  constructor(file) {
    this.#file = file;
    this.#next = file.size;
  }

  /** Adds an object, a PDFObject or its bytes, and gives its reference. */
  add(object) {
    const ref = PDFRef.of(this.#next++, 0);
    this.#objects.set(ref, object);
    return ref;
  }

  /** Puts an object in the place of the one that the reference stands for. */
  replace(ref, object) {
    this.#objects.set(PDFRef.of(ref.objectNumber, this.#file.generationOf(ref.objectNumber)), object);
  }

  /** The bytes to append, and where in them each object that was given as bytes begins: {bytes, placeOf(ref)}. */
  finish() {
    const { bytes: before } = this.#file;
    const pieces = before.at(-1) === NEWLINE ? [] : [Uint8Array.of(NEWLINE)];
    const places = new Map();
    let at = before.length;
    const write = (bytes) => {
      pieces.push(bytes);
      at += bytes.length;
    };
    at += pieces.length;
    const offsets = new Map();
    for (const [ref, object] of this.#objects) {
      offsets.set(ref, at);
      write(ascii(`${ref.objectNumber} ${ref.generationNumber} obj\n`));
      places.set(ref, at - before.length);
      write(object instanceof Uint8Array ? object : bytesOf(object));
      write(ascii("\nendobj\n"));
    }
    const start = at;
    write(this.#file.hasXrefStream ? this.#crossReferenceStream(offsets, start) : this.#crossReferenceTable(offsets));
    write(ascii(`startxref\n${start}\n%%EOF\n`));
    return { bytes: joined(pieces), placeOf: (ref) => places.get(ref) };
  }

  // 7.5.4: runs of numbers that follow each other, twenty bytes for each.
  #crossReferenceTable(offsets) {
    const lines = runsOf(offsets).flatMap((run) => [
      `${run[0][0].objectNumber} ${run.length}\n`,
      ...run.map(([ref, offset]) => `${digits(offset, 10)} ${digits(ref.generationNumber, 5)} n \n`),
    ]);
    const trailer = this.#trailer(this.#next);
    return ascii(`xref\n${lines.join("")}trailer\n${trailer}\n`);
  }

  // 7.5.8: the stream has an entry for itself.
  #crossReferenceStream(offsets, start) {
    const own = PDFRef.of(this.#next, 0);
    const runs = runsOf(new Map([...offsets, [own, start]]));
    const content = new Uint8Array(runs.flat().length * 7);
    const view = new DataView(content.buffer);
    runs.flat().forEach(([ref, offset], i) => {
      view.setUint8(i * 7, 1);
      view.setUint32(i * 7 + 1, offset);
      view.setUint16(i * 7 + 5, ref.generationNumber);
    });
    const dictionary = this.#trailer(this.#next + 1);
    dictionary.set(name("Type"), name("XRef"));
    dictionary.set(name("W"), numbers(this.#file.context, [1, 4, 2]));
    dictionary.set(name("Index"), numbers(this.#file.context, runs.flatMap((run) => [run[0][0].objectNumber, run.length])));
    const stream = bytesOf(PDFRawStream.of(dictionary, content));
    return joined([ascii(`${own.objectNumber} 0 obj\n`), stream, ascii("\nendobj\n")]);
  }

  #trailer(size) {
    const { trailer, startxref, context } = this.#file;
    const made = PDFDict.withContext(context);
    for (const key of ["Root", "Info"]) if (trailer.has(name(key))) made.set(name(key), trailer.get(name(key)));
    const [first] = this.#file.member(trailer, "ID", PDFArray)?.asArray() ?? [];
    if (first) {
      const second = PDFHexString.of(hex(crypto.getRandomValues(new Uint8Array(16))));
      const id = PDFArray.withContext(context);
      for (const each of [first, second]) id.push(each);
      made.set(name("ID"), id);
    }
    made.set(name("Size"), PDFNumber.of(size));
    made.set(name("Prev"), PDFNumber.of(startxref));
    return made;
  }
}

/** An object as it stands in a file. */
export function bytesOf(object) {
  const bytes = new Uint8Array(object.sizeInBytes());
  object.copyBytesInto(bytes, 0);
  return bytes;
}

const digits = (number, width) => String(number).padStart(width, "0");

function numbers(context, values) {
  const array = PDFArray.withContext(context);
  for (const value of values) array.push(PDFNumber.of(value));
  return array;
}

// [[ref, offset], …] in runs of numbers that follow each other.
function runsOf(offsets) {
  const runs = [];
  for (const entry of [...offsets].sort(([a], [b]) => a.objectNumber - b.objectNumber)) {
    const last = runs.at(-1);
    if (last && last.at(-1)[0].objectNumber + 1 === entry[0].objectNumber) last.push(entry);
    else runs.push([entry]);
  }
  return runs;
}
