// The window in which the user sees documents, and signs what he has seen. It has the documents' bytes and nobody else in the
// extension has; they are gone with it. It takes a refusal from its first moment on, and "Sign" when a document is drawn.

import { Arming } from "../consent/arming.js";
import { draw } from "../consent/characters.js";
import { showReadiness } from "../consent/readiness.js";
import { QuillmarkError } from "../quillmark.js";
import { fromBase64 } from "../src/base64.js";
import { operationOf } from "../src/operations.js";
import { element } from "../src/pages.js";
import { commonName } from "../src/pdf/cms.js";
import { factsOf, opened } from "../src/pdf/document.js";
import { refusal } from "../src/pdf/refusal.js";
import { plain } from "../src/plain-error.js";
import { numbered, showAbout, summaryOf } from "./about.js";
import { Background } from "./calls.js";
import { checkDrawable } from "./drawing.js";
import { PagesView } from "./pages-view.js";
import { letPlaceByKeys } from "./placing-by-keys.js";
import { letPlace } from "./placing.js";
import { signAll, withField } from "./signing.js";

/** A piece of a document on its way: less than a browser's message may have. */
const PIECE_BYTES = 2 * 1024 * 1024;

// Where a visible signature is at first, in points: at the lower left of the first page.
const FIRST_PLACE = { page: 0, rectangle: [36, 36, 236, 96] };
const NAME_TO_COME = "(your name)";

// Firefox would open what is dropped here in the place of the question.
for (const type of ["dragover", "drop"]) window.addEventListener(type, (event) => event.preventDefault());

const view = new PagesView(element("pages"), (page, count) => {
  element("page").textContent = `Page ${page.toLocaleString()} of ${count.toLocaleString()}`;
  showReady();
});
const background = new Background({ onQuestion: (given) => void begin(given).catch(fail), onGone });

let question;
let documents;
let shown;
let arming;
let isOpen = false;
let isSigning = false;

async function begin(given) {
  question = given;
  showSite();
  element("documents").hidden = false;
  arm();
  checkChain(question.chain);
  documents = question.documents.map((each) => ({ ...each, place: placeIn(each.visible) }));
  for (const [i, document] of documents.entries()) await read(i, document);
  await showRest(-1);
}

// What is left to sign: the next document that was not opened yet, behind the one of this number.
async function showRest(i) {
  if (documents.length > 1) showList();
  showSign();
  const signable = documents.findIndex(({ error }) => !error);
  if (signable !== -1) return openInTurn(nextUnseen(i) ?? signable);
  background.answer("none");
  background.finish();
}

// The number of the next document that can be signed and was not opened, from the one behind `i` on; undefined when there is none.
function nextUnseen(i) {
  const numbers = documents.map((_, at) => (i + 1 + at) % documents.length);
  return numbers.find((at) => !documents[at].error && !documents[at].isSeen);
}

function checkChain(chain) {
  try {
    for (const certificate of chain) commonName(fromBase64(certificate));
  } catch (cause) {
    throw new QuillmarkError("INVALID_ARGUMENT", { detail: "chain holds something that is no certificate.", cause });
  }
}

function showSite() {
  const { origin, operation, isFramed, isPrivate, surroundings, firstAllowed } = question;
  element("asks").textContent = operationOf(operation).asks;
  element("origin").textContent = origin;
  const date = firstAllowed && new Date(firstAllowed).toLocaleDateString(undefined, { dateStyle: "long" });
  element("history").hidden = isPrivate;
  element("history").textContent = date ? `First allowed on ${date}.` : "You have never allowed this site before.";
  element("framed").hidden = !isFramed;
  if (isFramed) element("deny").setAttribute("aria-describedby", "asks origin framed readiness");
  element("surroundings").textContent = surroundings ?? "a page whose address Quillmark does not know";
}

function placeIn(visible) {
  if (typeof visible === "boolean") return visible ? FIRST_PLACE : undefined;
  const { page, x, y, width, height } = visible;
  return { page: page - 1, rectangle: [x, y, x + width, y + height] };
}

// A document that cannot be signed is told to the page, and does not keep the others from it.
async function read(i, document) {
  element("loading").textContent = documents.length > 1 ? `Reading document ${i + 1} of ${documents.length}…` : "Reading…";
  const bytes = new Uint8Array(document.size);
  for (let at = 0; at < document.size; at += PIECE_BYTES) {
    const length = Math.min(PIECE_BYTES, document.size - at);
    bytes.set(pieceOf(length, await background.call("piece", { document: i, at, length })), at);
  }
  try {
    document.file = opened(bytes);
    document.facts = await factsOf(document.file);
    const { file } = await withField(document, { signer: NAME_TO_COME });
    await checkDrawable(file, document.facts.pages);
  } catch (error) {
    await refuse(i, error);
  }
}

function pieceOf(length, text) {
  try {
    const bytes = fromBase64(text);
    if (bytes.length === length) return bytes;
  } catch {
    // Answered below.
  }
  throw new QuillmarkError("ABORTED", { detail: "The page did not give its document." });
}

async function refuse(i, cause) {
  const damaged = refusal("it is damaged. Save it anew in the program that it comes from.");
  const error = cause instanceof QuillmarkError ? cause : damaged;
  Object.assign(documents[i], { error, file: undefined });
  await background.call("tell", { document: i, error: plain(error) });
}

// Shown is the file as it will be, with the field for the signature: what is drawn and what is signed cannot differ in more than
// the name and the time.
let opening = Promise.resolve();
function openInTurn(...args) {
  return (opening = opening.then(() => open(...args)).catch(fail));
}

async function open(i, { keepsPlace = false } = {}) {
  const document = documents[i];
  if (document.error) return;
  // Until it is drawn, nothing is signed.
  setOpen(false);
  element("pages").ariaBusy = "true";
  const { file: drawn } = await withField(document, { signer: NAME_TO_COME });
  if (!keepsPlace) showAbout(document);
  element("document").hidden = false;
  element("pages").classList.toggle("places", document.visible === true);
  element("place").hidden = document.visible !== true;
  await view.show(drawn, { keepsPlace, onBroken: (page) => void refuseOpened(i, page).catch(fail) });
  if (document.error) return;
  document.isSeen = true;
  shown = i;
  showSign();
  element("loading").hidden = true;
  setOpen(true);
  for (const [at, item] of [...element("list").children].entries()) {
    item.classList.toggle("open", at === i);
    item.firstChild.ariaCurrent = at === i ? "true" : null;
  }
}

function setOpen(value) {
  isOpen = value;
  showReady();
}

// "Sign" is there while all that is in sight is drawn. Each time that it comes, what is in sight has changed, and the user has to
// see it.
function showReady() {
  const isReady = isOpen && view.isDrawn;
  if (element("sign").disabled === !isReady) return;
  element("sign").disabled = !isReady;
  if (isReady) arming.restart();
}

// Nobody signs what he cannot see.
async function refuseOpened(i, page) {
  if (documents[i].error) return;
  const error = refusal(`its page ${page} cannot be drawn. Save it anew in the program that it comes from.`);
  if (isSigning) {
    documents[i].broken = error;
    return;
  }
  setOpen(false);
  await refuse(i, error);
  await showRest(i);
}

function showSign() {
  const signable = documents.filter(({ error }) => !error);
  const unseen = signable.filter(({ isSeen }) => !isSeen).length;
  const words = unseen > 0 ? `, ${unseen.toLocaleString()} not opened` : "";
  if (documents.length > 1) element("sign").textContent = `Sign ${numbered(signable.length, "document", "documents")}${words}`;
  element("next").hidden = unseen === 0 || documents.length === 1;
}

function showList() {
  const items = documents.map((document, i) => {
    const item = globalThis.document.createElement("li");
    const words = globalThis.document.createElement("span");
    words.className = "quiet";
    words.textContent = document.error ? document.error.message : summaryOf(document.facts);
    const button = globalThis.document.createElement("button");
    button.type = "button";
    button.disabled = Boolean(document.error);
    draw(button, document.name);
    button.addEventListener("click", () => void openInTurn(i));
    item.append(button, words);
    return item;
  });
  element("list").replaceChildren(...items);
  element("list").hidden = false;
}

element("next").addEventListener("click", async () => {
  await openInTurn(nextUnseen(shown));
  if (element("next").hidden) element("pages").focus();
});
element("smaller").addEventListener("click", () => showZoom(view.zoom(-1)));
element("larger").addEventListener("click", () => showZoom(view.zoom(1)));
const showZoom = (zoom) => (element("zoom").textContent = `${zoom * 100} %`);
showZoom(1);

letPlace(element("pages"), view, showPlaced);
letPlaceByKeys(element("place"), view, () => (isOpen ? documents[shown].place : undefined), showPlaced);

function showPlaced(place) {
  if (documents[shown].visible !== true) return;
  documents[shown].place = place;
  const [left, bottom, right, top] = place.rectangle.map(Math.round);
  element("placed").textContent =
    `On page ${place.page + 1}: ${right - left} points wide, ${top - bottom} high, ${left} from the left, ${bottom} from below.`;
  void openInTurn(shown, { keepsPlace: true });
}

// ---- the answer, under the rules that hold for every question

function arm() {
  const waiting = document.title;
  const show = showReadiness([...document.querySelectorAll("footer button")]);
  arming = new Arming((isArmed) => {
    document.title = isArmed && shown !== undefined ? `Quillmark - Sign for ${question.origin}?` : waiting;
    show(isArmed);
  });
  element("deny").focus();
  const on = (button, act) => element(button).addEventListener("click", (event) => arming.takes(event) && act());
  on("deny", deny);
  on("sign", () => void sign().catch(fail));
  on("stop", () => void fail(new QuillmarkError("USER_CANCELLED")));
  window.addEventListener("keydown", (event) => {
    if (event.key === "Escape" && arming.takes(event) && !isSigning) deny();
  });
}

function deny() {
  setOpen(false);
  element("deny").disabled = true;
  background.answer("deny");
}

async function sign() {
  isSigning = true;
  background.answer("sign");
  element("answers").hidden = true;
  element("working").hidden = false;
  element("progress").textContent = "Choose your certificate and type your PIN in Quillmark's own window.";
  element("progress").focus();
  element("list").inert = element("document").inert = true;
  await signAll(background, documents, question, (i) => {
    element("progress").textContent = `Signing ${i + 1} of ${documents.length}…`;
  });
  background.finish();
}

// What is no document's own fault ends the request; the page is told by the background.
async function fail(error) {
  await background.call("fail", plain(error)).catch(() => {});
}

// Nothing of the documents stays behind: the browser throws this page away.
function onGone() {
  location.replace("gone.html");
}
