// The fenced blocks of a document.

import { readFile } from "node:fs/promises";

const root = new URL("../../../", import.meta.url);

/** In order: { info, language, content }, `info` being all that stands behind the fence. */
export async function blocksOf(document) {
  const markdown = await readFile(new URL(document, root), "utf8");
  return [...markdown.matchAll(/^```([^\n]*)\n([^]*?)^```$/gm)]
    .map(([, info, content]) => ({ info, language: info.split(/[ ,]/)[0], content }));
}
