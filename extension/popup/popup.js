// The toolbar's popup: whether the host runs, who waits, and what was signed lately.

import { findOut } from "../doctor/section.js";
import { ERRORS } from "../quillmark.js";
import { describe, element, onPress, row, rowButton, setUsable, tellBackground } from "../src/pages.js";

const api = globalThis.browser ?? globalThis.chrome;

onPress("forget", async () => {
  await tellBackground("stopHost");
  await announce("The signing program was ended. It has forgotten your PIN.");
});
onPress("reread", async () => {
  const isDone = await tellBackground("readTokensAgain");
  await announce(
    isDone
      ? "The signing program was ended. The next request starts it anew, and it reads the tokens that are there then."
      : "A request is under way. Answer or cancel it first, then try again.",
  );
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
  list("waiting", sites.waiting.map((origin) => row(origin)));
  list("allowed", sites.allowed.map((origin) => row(origin, "", takeBackButton(origin))));
}

function list(id, rows) {
  element(id).replaceChildren(...rows);
  element(`${id}-section`).hidden = rows.length === 0;
}

function takeBackButton(origin) {
  return rowButton("Take back", `Take back the permission of ${origin}`, async () => {
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
  const name = `Find out why nothing was signed at ${new Date(time).toLocaleTimeString()}`;
  return rowButton("Find out why", name, () => findOut(ERRORS[outcome] ?? outcome));
}
