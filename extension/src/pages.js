/** What the extension's own pages have in common. */

import { draw } from "../consent/characters.js";

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

/** A time in the user's own words, without the characters for layout that browsers put into it. */
export const wordsForTime = (time) => new Date(time).toLocaleString().replaceAll(/\p{Cf}/gu, "").replaceAll(/\p{Z}/gu, " ");

/** A row of a list: an origin or a name, what is said of it, and perhaps a button. */
export function row(name, words = "", button) {
  const item = document.createElement("li");
  const text = document.createElement("div");
  const title = document.createElement("span");
  title.className = "origin";
  draw(title, name);
  text.append(title);
  if (words) {
    const more = document.createElement("div");
    more.className = "quiet";
    draw(more, words);
    text.append(more);
  }
  item.append(text, ...(button ? [button] : []));
  return item;
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
  signGstReturn: "GST return",
  signItReturn: "Income-tax return",
  signPdfHash: "PDF document",
  signPdfs: "PDF document, shown before",
  signAuthToken: "Authentication token",
};

/** A signature of the journal in words: {title, words}. */
export function describe({ time, origin, operation, algorithm, digest, subject, certificate, outcome }) {
  const who = subject ?? (certificate ? `certificate ${certificate}` : "a certificate chosen in the signing program's window");
  const became = outcome === "signed" ? `signed with ${who}` : `not signed: ${outcome}`;
  return {
    title: origin ?? "A site in a private window",
    words: `${wordsForTime(time)} – ${OPERATIONS[operation] ?? operation}, ${became}. ${algorithm} ${digest}`,
  };
}
