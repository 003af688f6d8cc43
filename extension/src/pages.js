/** What the extension's own pages have in common. */

import { nodesOf as nodesOfText } from "../consent/characters.js";
import { locale, message } from "./messages.js";

const api = globalThis.browser ?? globalThis.chrome;

export const element = (id) => document.getElementById(id);

/** Asks the background; rejects with its reason. */
export async function tellBackground(type, values = {}) {
  const answer = await api.runtime.sendMessage({ type, ...values });
  if (answer?.error) throw new Error(answer.error);
  return answer;
}

/** Says whether a button can be pressed. One that cannot keeps the keyboard, and those who do not see it can find it. */
export function setUsable(id, isUsable) {
  element(id).ariaDisabled = String(!isUsable);
}

export const isUsable = (id) => element(id).ariaDisabled !== "true";

/** Calls `act` when a button is pressed that can be. */
export function onPress(id, act) {
  element(id).addEventListener("click", () => isUsable(id) && act());
}

/** A time in the words of the language, without the characters for layout that browsers put into it. */
export const wordsForTime = (time) => plainly(new Date(time).toLocaleString(locale()));
export const wordsForDate = (time) => plainly(new Date(time).toLocaleDateString(locale()));
const plainly = (words) => words.replaceAll(/\p{Cf}/gu, "").replaceAll(/\p{Z}/gu, " ");

/** A row of a list: an origin or a name, what is said of it, both as of `nodesOf`, and perhaps a button. */
export function row(name, words = "", button) {
  const item = document.createElement("li");
  const text = document.createElement("div");
  const title = document.createElement("span");
  title.className = "origin";
  write(title, name);
  text.append(title);
  if (words.length > 0) {
    const more = document.createElement("div");
    more.className = "quiet";
    write(more, words);
    text.append(more);
  }
  item.append(text, ...(button ? [button] : []));
  return item;
}

/** Shows the address of the page around a frame, or says that nobody knows it. */
export function showSurroundings(origin) {
  element("surroundings").textContent = origin ?? message("site_unknown");
  if (origin === null) element("surroundings").removeAttribute("lang");
}

/**
 * What is the same in each language: addresses, and what the doctor says. For some languages browsers have no letters of one
 * width, and in others a letter can be taken for another one.
 */
export const english = (text) => ({ english: text });

/** What can be put into an element of words: a text, or a list of texts and those of `english`. */
export const nodesOf = (words) => [words].flat().flatMap((piece) => {
  if (typeof piece === "string") return nodesOfText(piece);
  const span = Object.assign(document.createElement("span"), { lang: "en" });
  span.append(...nodesOfText(piece.english));
  return [span];
});

function write(target, words) {
  target.classList.add("as-written");
  target.append(...nodesOf(words));
}

/** A button with a word on it, and a longer name for those who do not see the row. */
export function rowButton(word, name, onClick) {
  const button = document.createElement("button");
  button.type = "button";
  button.textContent = word;
  button.setAttribute("aria-label", name);
  button.addEventListener("click", onClick);
  return button;
}

const OPERATIONS = {
  signGstReturn: "journal_gst",
  signItReturn: "journal_it",
  signPdfHash: "journal_pdf_digest",
  signPdfs: "journal_pdf",
  signAuthToken: "journal_auth",
};

/** A signature of the journal in words: {title, words}. */
export function describe({ time, origin, operation, algorithm, digest, subject, certificate, outcome }) {
  const key =
    outcome !== "signed" ? "journal_not_signed"
    : subject ? "journal_signed"
    : certificate ? "journal_signed_certificate"
    : "journal_signed_chosen";
  const what = Object.hasOwn(OPERATIONS, operation) ? message(OPERATIONS[operation]) : operation;
  const by = outcome === "signed" ? (subject ?? certificate ?? "") : outcome;
  return {
    title: origin ? english(origin) : message("journal_private"),
    words: message(key, wordsForTime(time), what, `${algorithm} ${digest}`, by),
  };
}
