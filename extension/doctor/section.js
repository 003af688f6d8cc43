/** The part of a page that shows what the doctor finds. */

import { counted, message, messageAround } from "../src/messages.js";
import { element, english, isUsable, nodesOf, onPress, row, setUsable } from "../src/pages.js";
import { examine } from "./doctor.js";
import { reportOf, tokensOf, wordsForCertificate, wordsForToken } from "./report.js";

const VERDICTS = {
  can: "doctor_can",
  unknown: "doctor_unknown",
  cannot: "doctor_cannot",
};

const api = globalThis.browser ?? globalThis.chrome;
let diagnosis;

onPress("examine", () => findOut());
element("copy-report").addEventListener("click", async () => {
  const { version } = api.runtime.getManifest();
  try {
    await navigator.clipboard.writeText(reportOf(diagnosis, { version, browser: navigator.userAgent }));
    say(message("doctor_copied"));
  } catch (error) {
    say(messageAround("doctor_not_copied", english(error.message)));
  }
});

/** Has the doctor look, and shows what it finds. `why`: the words of the failure that is looked into, if there is one. */
export async function findOut(why = "") {
  if (!isUsable("examine")) return; // it looks already
  element("why").textContent = why;
  element("why").hidden = why === "";
  setUsable("examine", false);
  element("copy-report").hidden = true;
  say(message("doctor_looks"));
  showRows("findings", []);
  showRows("tokens", []);
  try {
    diagnosis = await examine();
    show(diagnosis);
  } catch (error) {
    const { code, message: words, detail } = error;
    say(code === "BAD_REPLY" && detail ? messageAround("doctor_problem", english(detail)) : words);
  } finally {
    setUsable("examine", true);
  }
}

function show({ verdict, findings }) {
  const wrong = ["failure", "unknown", "warning"].flatMap((level) => findings.filter((finding) => finding.level === level));
  const fine = findings.length - wrong.length;
  say(message("doctor_verdict", message(VERDICTS[verdict]), counted("doctor_fine", fine)));
  showRows("findings", wrong.map(({ text, remedy, command }) => row(english(text), wordsForRemedy(remedy, command))));
  showRows("tokens", tokensOf(diagnosis).flatMap((token) => [
    row(token.label || message("token_unnamed"), wordsForToken(token)),
    ...token.certificates.map((each) => row(each.subject ?? message("certificate_unreadable"), wordsForCertificate(each))),
  ]));
  element("copy-report").hidden = false;
}

function wordsForRemedy(...given) {
  const words = given.filter(Boolean);
  return words.length > 0 ? messageAround("doctor_helps", english(words.join(": "))) : "";
}

function showRows(id, rows) {
  element(id).replaceChildren(...rows);
  element(id).hidden = rows.length === 0;
}

const say = (words) => element("diagnosis").replaceChildren(...nodesOf(words));
