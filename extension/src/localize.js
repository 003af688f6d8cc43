// Fills a page with the messages that it names. Until it has its language, ui.css hides it.
//
// An element's text is the message in its `data-message`; the elements in it take the places of $1, $2, ... An attribute is the
// message in `data-message-`, followed by the attribute's name.

import { language, message, messageAround } from "./messages.js";

const ATTRIBUTES = ["alt", "aria-label", "placeholder", "title"];

for (const element of document.querySelectorAll("[data-message]")) {
  element.replaceChildren(...messageAround(element.dataset.message, ...element.children));
}
for (const name of ATTRIBUTES) {
  const source = `data-message-${name}`;
  for (const element of document.querySelectorAll(`[${source}]`)) element.setAttribute(name, message(element.getAttribute(source)));
}
document.documentElement.dir = message("page_direction");
document.documentElement.lang = language();
