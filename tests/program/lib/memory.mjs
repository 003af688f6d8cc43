// What lies in the memory of a process of ours.

import { open, readFile } from "node:fs/promises";

const LARGEST_HEAP = 2 ** 32;

/**
 * The places in a process's writable memory that hold a text, in any of the encodings that programs, GTK and wx keep texts
 * in: [{ encoding, where }]. The process must be a child of this one, or this one root's.
 */
export async function copiesInMemory(pid, text) {
  const codes = [...text].map((letter) => letter.codePointAt(0));
  const needles = {
    "UTF-8": Buffer.from(text),
    "UTF-16": Buffer.from(text, "utf16le"),
    "UTF-32": Buffer.from(new Uint32Array(codes).buffer),
  };
  const found = [];
  const memory = await open(`/proc/${pid}/mem`);
  try {
    for (const { start, end, name } of await writableRanges(pid)) {
      if (end - start > LARGEST_HEAP) continue; // the notes of a sanitizer
      const bytes = Buffer.alloc(end - start);
      const isReadable = await memory.read(bytes, 0, bytes.length, start).then(() => true, () => false);
      if (!isReadable) continue; // such as the kernel's own pages
      for (const [encoding, needle] of Object.entries(needles)) {
        for (let at = bytes.indexOf(needle); at >= 0; at = bytes.indexOf(needle, at + 1)) {
          found.push({ encoding, where: `${name} +0x${at.toString(16)}` });
        }
      }
    }
  } finally {
    await memory.close();
  }
  return found;
}

async function writableRanges(pid) {
  const maps = await readFile(`/proc/${pid}/maps`, "utf8");
  return [...maps.matchAll(/^([0-9a-f]+)-([0-9a-f]+) rw.. \S+ \S+ \S+ *(.*)$/gm)].map(([, start, end, name]) => ({
    start: parseInt(start, 16), end: parseInt(end, 16), name: name || "anonymous",
  }));
}
