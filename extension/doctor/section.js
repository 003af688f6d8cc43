/** The part of a page that shows what the doctor finds. */

import { element, isUsable, onPress, row, setUsable } from "../src/pages.js";
import { plain } from "../src/plain-error.js";
import { examine } from "./doctor.js";
import { reportOf, tokensOf, wordsForCertificate, wordsForToken } from "./report.js";

const VERDICTS = {
  can: "A signature can be made, as far as can be seen.",
  unknown: "Whether a signature can be made cannot be told.",
  cannot: "No signature can be made yet.",
};

const api = globalThis.browser ?? globalThis.chrome;
let diagnosis;

onPress("examine", () => findOut());
element("copy-report").addEventListener("click", async () => {
  const { version } = api.runtime.getManifest();
  try {
    await navigator.clipboard.writeText(reportOf(diagnosis, { version, browser: navigator.userAgent }));
    say("The report is in the clipboard.");
  } catch (error) {
    say(`The report could not be copied: ${error.message}`);
  }
});

/** Has the doctor look, and shows what it finds. `why`: the words of the failure that is looked into, if there is one. */
export async function findOut(why = "") {
  if (!isUsable("examine")) return; // it looks already
  element("why").textContent = why;
  element("why").hidden = why === "";
  setUsable("examine", false);
  element("copy-report").hidden = true;
  say("The doctor looks. This may take a minute.");
  showRows("findings", []);
  showRows("tokens", []);
  try {
    diagnosis = await examine();
    show(diagnosis);
  } catch (error) {
    say(plain(error).message);
  } finally {
    setUsable("examine", true);
  }
}

function show({ verdict, findings }) {
  const wrong = ["failure", "unknown", "warning"].flatMap((level) => findings.filter((finding) => finding.level === level));
  const fine = findings.length - wrong.length;
  say(`${VERDICTS[verdict]} ${fine === 1 ? "1 thing is" : `${fine.toLocaleString()} things are`} in order.`);
  showRows("findings", wrong.map(({ text, remedy, command }) => row(text, wordsForRemedy(remedy, command))));
  showRows("tokens", tokensOf(diagnosis).flatMap((token) => [
    row(token.label || "A token without a name", wordsForToken(token)),
    ...token.certificates.map((each) => row(each.subject ?? "A certificate that cannot be read", wordsForCertificate(each))),
  ]));
  element("copy-report").hidden = false;
}

function wordsForRemedy(...given) {
  const words = given.filter(Boolean);
  return words.length > 0 ? `What helps: ${words.join(": ")}` : "";
}

function showRows(id, rows) {
  element(id).replaceChildren(...rows);
  element(id).hidden = rows.length === 0;
}

const say = (words) => (element("diagnosis").textContent = words);
