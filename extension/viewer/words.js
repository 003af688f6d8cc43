/** The words of a page for those who hear it: what the file says of itself, which need not be what is drawn. */

import { draw } from "../consent/characters.js";
import { message } from "../src/messages.js";

/** More than a page holds that people read. */
const MAX_CHARACTERS = 50_000;

/** An element with the words of a page of pdf.js, which is not seen. */
export async function wordsOf(proxy) {
  const element = document.createElement("div");
  element.className = "unseen";
  const words = await Promise.all([textOf(proxy), notesOf(proxy)]).then((texts) => texts.flat().join("\n").trim(), () => undefined);
  if (words === undefined) {
    element.append(message("words_unreadable"));
    return element;
  }
  draw(element, words.slice(0, MAX_CHARACTERS));
  if (words === "") element.append(message("words_none"));
  if (words.length > MAX_CHARACTERS) element.append(`\n${message("words_go_on")}`);
  return element;
}

async function textOf(proxy) {
  const { items } = await proxy.getTextContent();
  return items.map(({ str = "", hasEOL }) => (hasEOL ? `${str}\n` : str)).join("");
}

// Notes and form fields are no part of the page's own text.
async function notesOf(proxy) {
  const annotations = await proxy.getAnnotations({ intent: "display" });
  const texts = annotations.flatMap(({ contentsObj, fieldValue }) => [contentsObj?.str, fieldValue].flat());
  return texts.filter((text) => typeof text === "string" && text !== "");
}
