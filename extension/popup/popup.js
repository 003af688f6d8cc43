// The toolbar's popup: whether the host runs, who waits, and what was signed lately.

import { findOut } from "../doctor/section.js";
import { messageOf } from "../quillmark.js";
import { locale, message } from "../src/messages.js";
import { describe, element, english, onPress, row, rowButton, setUsable, tellBackground } from "../src/pages.js";

const api = globalThis.browser ?? globalThis.chrome;

onPress("forget", async () => {
  await tellBackground("stopHost");
  await announce(message("popup_forgotten"));
});
onPress("reread", async () => {
  const isDone = await tellBackground("readTokensAgain");
  await announce(message(isDone ? "popup_reads_again" : "popup_under_way"));
});
element("settings").addEventListener("click", async () => {
  await api.runtime.openOptionsPage();
  window.close();
});

await showState();
await showSignatures();

async function announce(words) {
  element("announcement").textContent = words;
  element("announcement").hidden = false;
  await showState();
}

async function showState() {
  const { hostRuns, sites } = await tellBackground("state");
  element("runs").hidden = !hostRuns;
  element("rests").hidden = hostRuns;
  for (const button of ["forget", "reread"]) setUsable(button, hostRuns);
  list("waiting", sites.waiting.map((origin) => row(english(origin))));
  list("allowed", sites.allowed.map((origin) => row(english(origin), "", takeBackButton(origin))));
}

function list(id, rows) {
  element(id).replaceChildren(...rows);
  element(`${id}-section`).hidden = rows.length === 0;
}

function takeBackButton(origin) {
  return rowButton(message("popup_take_back"), message("popup_take_back_site", origin), async () => {
    await tellBackground("revoke", { origin });
    await showState();
    (document.querySelector("#allowed button") ?? element("settings")).focus();
  });
}

async function showSignatures() {
  const recent = await tellBackground("recentSignatures");
  element("signatures").replaceChildren(...recent.map((each) => row(describe(each).title, describe(each).words, whyButton(each))));
  element("no-signatures").hidden = recent.length > 0;
}

function whyButton({ outcome, time }) {
  if (outcome === "signed") return undefined;
  const name = message("popup_why_at", new Date(time).toLocaleTimeString(locale()));
  return rowButton(message("popup_why"), name, () => findOut(messageOf(outcome) ?? outcome));
}
