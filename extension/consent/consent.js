// The extension's own window: shows the question that the background holds for it, and sends the user's answer back; or, for
// a site that is allowed, what it has signed.

import { sha256Hex } from "../src/digest.js";
import { locale, message } from "../src/messages.js";
import { operationOf } from "../src/operations.js";
import { element, showSurroundings } from "../src/pages.js";
import { Arming } from "./arming.js";
import { draw } from "./characters.js";
import { showReadiness } from "./readiness.js";
import { showText } from "./text-section.js";

const api = globalThis.browser ?? globalThis.chrome;
const buttons = [...document.querySelectorAll("footer button")];

const id = location.hash.slice(1);
const port = api.runtime.connect({ name: "consent" });
port.onDisconnect.addListener(showGone);

// Firefox would open what is dropped here in the place of the question.
for (const type of ["dragover", "drop"]) window.addEventListener(type, (event) => event.preventDefault());

let question;
let text = "";
port.onMessage.addListener(async ({ type, question: given, piece }) => {
  if (type === "gone") return showGone();
  if (type === "question") question = given;
  if (type === "text") text += piece;
  if (text.length === question.characters) await show();
});
port.postMessage({ type: "ready", id });

async function show() {
  const { origin, operation, kind } = question;
  const isQuestion = kind === "question";
  const { asks, consequence } = operationOf(operation);
  element("title").textContent = message(isQuestion ? "consent_heading" : "consent_heading_statement");
  element("origin").textContent = origin;
  showSite();
  element("asks").textContent = message(asks);
  element("consequence").textContent = message(consequence);
  showFacts(question.facts ?? []);
  if (text !== "") showText(text, await sha256Hex(text));
  for (const part of document.querySelectorAll("[data-kind]")) part.hidden = part.dataset.kind !== kind;
  element("question").hidden = false;
  if (!isQuestion) document.title = message("consent_title_statement");
  armWith(isQuestion ? message("consent_title_ready", origin) : document.title);
  // It is on the screen behind the next frame.
  requestAnimationFrame(() => requestAnimationFrame(() => port.postMessage({ type: "shown", id })));
}

function showSite() {
  const { origin, isFramed, isPrivate, surroundings, firstAllowed } = question;
  element("framed").hidden = !isFramed;
  showSurroundings(surroundings);
  const isOwn = surroundings === origin;
  element("framed-warning").hidden = isOwn;
  // A private window leaves no trace, so it cannot add to the list.
  element("always").hidden = isPrivate;
  element("history").hidden = isPrivate;
  const date = firstAllowed && new Date(firstAllowed).toLocaleDateString(locale(), { dateStyle: "long" });
  element("history").textContent = date ? message("site_allowed_before", date) : message("site_never_allowed");
}

function showFacts(facts) {
  const rows = facts.flatMap(([name, value]) => {
    const term = document.createElement("dt");
    const definition = document.createElement("dd");
    term.textContent = name;
    definition.lang = "en";
    draw(definition, value);
    return [term, definition];
  });
  element("facts").replaceChildren(...rows);
  element("facts").hidden = rows.length === 0;
}

// The buttons stay where the keyboard finds them. The first that has it is one that gives nothing; with its name the question is
// read to those who do not see it.
function armWith(title) {
  const waitingTitle = document.title;
  const show = showReadiness(buttons);
  const arming = new Arming((isArmed) => {
    document.title = isArmed ? title : waitingTitle;
    show(isArmed);
  });
  const first = question.kind === "question" ? element("deny") : element("stop");
  const isHidden = (part) => element(part).closest("[hidden]");
  const described = ["title", "origin", "history", "framed", "asks", "consequence", "facts", "size", "readiness"];
  first.setAttribute("aria-describedby", described.filter((part) => !isHidden(part)).join(" "));
  first.focus();

  const on = (button, act) => element(button).addEventListener("click", (event) => arming.takes(event) && act());
  for (const answer of ["deny", "page", "once"]) on(answer, () => send(answer));
  on("stop", () => send("deny"));
  on("confirm-always", () => send("always"));
  on("always", () => showStep("always-step", arming));
  on("back", () => showStep("answers", arming));
  window.addEventListener("keydown", (event) => {
    // In the search it clears the search.
    const isSearch = event.target.id === "wanted" && event.target.value !== "";
    if (event.key === "Escape" && !isSearch && arming.takes(event)) send("deny");
  });
}

// Another place takes the next click, after a second of its own.
function showStep(step, arming) {
  element("answers").hidden = step !== "answers";
  element("always-step").hidden = step !== "always-step";
  element(step === "answers" ? "deny" : "back").focus();
  arming.restart();
}

function send(answer) {
  for (const button of buttons) button.disabled = true;
  port.postMessage({ type: "answer", id, answer });
}

function showGone() {
  element("question").hidden = true;
  element("gone").hidden = false;
}
