/** How a window's buttons tell whether they take an answer yet. */

import { message } from "../src/messages.js";
import { element } from "../src/pages.js";

/** A function for Arming: shows it by the buttons' look, and says it once to those who do not see that. */
export function showReadiness(buttons) {
  let isSaid = false;
  return (isArmed) => {
    document.documentElement.classList.toggle("waits", !isArmed);
    for (const button of buttons) button.setAttribute("aria-disabled", String(!isArmed));
    if (!isArmed || isSaid) return;
    isSaid = true;
    element("readiness").textContent = message("readiness_live");
  };
}
