// The settings page: who may ask, what the administrator has set, how long the PIN is remembered, and the journal.

import "../doctor/section.js";
import { counted, message } from "../src/messages.js";
import { describe, element, english, row, rowButton, tellBackground } from "../src/pages.js";

const api = globalThis.browser ?? globalThis.chrome;
const MINUTES = ["quietMinutes", "longestMinutes"];
/** So many entries of the journal are shown; all are exported. */
const JOURNAL_SHOWN = 200;

api.storage.onChanged.addListener((changes, area) => area !== "session" && show());
element("stop").addEventListener("click", async () => {
  await tellBackground("stopHost");
  await show();
});
for (const name of MINUTES) element(name).addEventListener("change", () => setMinutes(name));
element("export").addEventListener("click", exportJournal);

await show();

async function show() {
  const { hostRuns, sites, pinLife, policy } = await tellBackground("state");
  const hadKeyboard = element("sites").contains(document.activeElement);
  element("sites").replaceChildren(...sites.always.map((origin) => row(english(origin), "", removeButton(origin))));
  element("no-sites").hidden = sites.always.length > 0;
  if (hadKeyboard) (document.querySelector("#sites button") ?? element("sites-title")).focus();
  showPolicy(policy);
  element("runs").hidden = element("stop").hidden = !hostRuns;
  element("rests").hidden = hostRuns;
  for (const name of MINUTES) {
    element(name).value = pinLife[name];
    element(name).disabled = name in policy.pinLife;
  }
  await showJournal();
}

function showPolicy({ allowed, denied, onlyAllowed, deniesAll, pinLife, problems }) {
  const isSet = onlyAllowed || deniesAll || [allowed, denied, problems, Object.keys(pinLife)].some(({ length }) => length > 0);
  element("policy").hidden = !isSet;
  element("denies-all").hidden = !deniesAll;
  element("only-allowed").hidden = !onlyAllowed || deniesAll;
  const nameOf = ({ key, entry }) => (entry === null ? key : `${key}: ${JSON.stringify(entry)}`);
  element("policy-problems").replaceChildren(...problems.map((problem) => row(english(nameOf(problem)), problem.why)));
  element("policy-sites").replaceChildren(
    ...allowed.map((site) => row(english(site), message("policy_allowed"))),
    ...denied.map((site) => row(english(site), message("policy_denied"))),
  );
}

function removeButton(origin) {
  return rowButton(message("settings_remove"), message("settings_remove_site", origin), async () => {
    await tellBackground("revoke", { origin });
    element("announcement").textContent = message("settings_removed", origin);
  });
}

async function setMinutes(name) {
  const input = element(name);
  // A value that is none of those allowed is put back.
  if (input.value !== "" && input.checkValidity()) await tellBackground("setMinutes", { name, minutes: input.valueAsNumber });
  await show();
}

async function showJournal() {
  const { lines, head } = await tellBackground("journal");
  const newest = lines.slice(-JOURNAL_SHOWN).reverse().map((line) => describe(JSON.parse(line)));
  element("journal").replaceChildren(...newest.map(({ title, words }) => row(title, words)));
  element("journal").hidden = element("export").hidden = element("head").hidden = lines.length === 0;
  element("no-journal").hidden = lines.length > 0;
  const isAll = lines.length === newest.length;
  element("head").textContent = isAll ? counted("journal_head", lines.length, head) : counted("journal_head_newest", lines.length, newest.length, head);
}

async function exportJournal() {
  const { lines } = await tellBackground("journal");
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob(lines.map((line) => `${line}\n`), { type: "application/jsonl" }));
  link.download = "quillmark-journal.jsonl";
  link.click();
  URL.revokeObjectURL(link.href);
}
