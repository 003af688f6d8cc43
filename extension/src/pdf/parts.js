/** What is in a PDF document and not in the drawing of its pages, or may look different elsewhere. */

import { PDFArray, PDFDict, PDFName, PDFRawStream } from "../../libraries/pdf-lib.js";
import { message } from "../messages.js";
import { name } from "./file.js";
import { orRefuse } from "./refusal.js";

const isOneOf = (file, dictionary, key, values) => values.includes(file.member(dictionary, key, PDFName)?.decodeText());

/** Each: the key of the words for people, and whether a dictionary is such a part. */
const PARTS = [
  { words: "part_files", isIt: (file, each) => file.member(each, "EF", PDFDict) !== undefined },
  {
    words: "part_scripts",
    isIt: (file, each) => isOneOf(file, each, "S", ["JavaScript", "Rendition"]) || each.has(name("JS")),
  },
  {
    words: "part_actions",
    isIt: (file, each) => isOneOf(file, each, "S", ["Launch", "SubmitForm", "ImportData", "GoToR", "GoToE", "Hide", "SetOCGState", "Sound"]),
  },
  { words: "part_layers", isIt: (file, each) => isOneOf(file, each, "Type", ["OCG", "OCMD"]) || each.has(name("OCGs")) || each.has(name("OC")) },
  {
    words: "part_fields",
    isIt: (file, each) => isOneOf(file, each, "FT", ["Tx", "Btn", "Ch"]),
  },
  { words: "part_xfa", isIt: (file, each) => each.has(name("XFA")) },
  {
    words: "part_films",
    isIt: (file, each) => isOneOf(file, each, "Subtype", ["Movie", "Sound", "Screen", "RichMedia", "3D"]),
  },
  { words: "part_notes", isIt: (file, each) => isOneOf(file, each, "Subtype", ["Text", "Popup"]) && each.has(name("Rect")) },
  { words: "part_hidden_notes", isIt: (file, each) => isHiddenNote(file, each) },
  { words: "part_alternates", isIt: (file, each) => each.has(name("Alternates")) },
  {
    words: "part_elsewhere",
    isIt: (file, each) => isOneOf(file, each, "Subtype", ["Form"]) && each.has(name("Ref")),
  },
];

// ISO 32000-1, 12.5.3: hidden, or not for the screen; and no field of a signature, which need not be seen.
const HIDDEN_OR_NO_VIEW = 2 | 32;

function isHiddenNote(file, dictionary) {
  if (!dictionary.has(name("Rect")) || !dictionary.has(name("Subtype")) || isOneOf(file, dictionary, "FT", ["Sig"])) return false;
  return ((file.member(dictionary, "F")?.asNumber?.() ?? 0) & HIDDEN_OR_NO_VIEW) !== 0;
}

/** How long at a time the objects are looked at: the window takes its user's answer meanwhile. */
const WORK_MS = 50;

/** The words for each such part of the file. All its objects are looked at, wherever they hang. */
export async function partsNotShown(file) {
  const found = new Set();
  const look = (object) => {
    const dictionary = object instanceof PDFRawStream ? object.dict : object;
    if (dictionary instanceof PDFDict) {
      for (const part of PARTS) if (!found.has(part) && part.isIt(file, dictionary)) found.add(part);
      for (const value of dictionary.values()) look(value);
    }
    if (object instanceof PDFArray) for (const each of object.asArray()) look(each);
  };
  let begun = performance.now();
  for (const number of file.numbers) {
    orRefuse("refusal_broken", () => look(file.objectOf(number)));
    if (performance.now() - begun < WORK_MS) continue;
    await new Promise((resolve) => setTimeout(resolve));
    begun = performance.now();
  }
  return PARTS.filter((part) => found.has(part)).map(({ words }) => message(words));
}
