// A page asks for one thing and hopes that the user sees another.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";

import { ask, codeOf, DIGEST, gesture } from "../../lib/browser-kit.mjs";
import { openQuestion } from "../lib/attacker.mjs";

const shown = (rig) => rig.extension.consent(() => ({
  words: document.querySelector("#question").innerText,
  text: document.querySelector("#text").textContent,
  marks: [...document.querySelectorAll("#text .mark small")].map(({ textContent }) => textContent),
  surroundings: document.querySelector("#framed").hidden ? null : document.querySelector("#surroundings").textContent,
}));

export default function ({ rig, attack }) {
  async function questionAbout(t, operation, args) {
    const question = await openQuestion(rig, t, { operation, args });
    await rig.user.consentWindow(question.origin);
    const what = await shown(rig);
    await rig.user.consent(question.origin, "deny");
    return what;
  }

  attack("what stands far behind in a text is shown, and so is a member that stands twice", async (t) => {
    const text = `{"tax":100,"filler":"${"x".repeat(20_000)}","tax":99999999}`;
    const { words, text: drawn } = await questionAbout(t, "signGstReturn", [text]);
    assert.equal(drawn, text);
    assert.match(words, /1 member repeats a name/);
    assert.ok(words.includes(createHash("sha256").update(text).digest("hex")));
  });

  attack("characters that hide, reorder or look like nothing are marked by their numbers", async (t) => {
    const { marks } = await questionAbout(t, "signAuthToken", [`a\u3164b\u2800c\u05d0d\u202ee\u200bf${"\n".repeat(500)}g`]);
    assert.deepEqual(marks, ["U+3164", "U+2800", "U+05D0", "U+202E", "U+200B", "500 blanks"]);
  });

  attack("an income-tax return's PAN and digest are shown, with the truth about the certificate, and a document's digest", async (t) => {
    const { words } = await questionAbout(t, "signItReturn", ["aGFzaA==", "ABCDE1234F"]);
    for (const part of ["ABCDE1234F", "aGFzaA==", "has no effect here"]) assert.ok(words.includes(part), part);
    const pdf = await questionAbout(t, "signPdfHash", [DIGEST, rig.certificate.thumbprint]);
    for (const part of ["5a".repeat(32), rig.certificate.thumbprint]) assert.ok(pdf.words.includes(part), part);
  });

  attack("for a frame the page around it is named", async (t) => {
    const page = await rig.page(t, { path: "/framing" });
    const frame = await rig.frameOf(page, rig.otherOrigin);
    await gesture(frame);
    const request = ask(frame, "selectCertificate");
    await rig.user.consentWindow(rig.otherOrigin);
    const { words, surroundings } = await shown(rig);
    assert.ok(words.includes(rig.otherOrigin));
    assert.equal(surroundings, rig.origin);
    await rig.user.consent(rig.otherOrigin, "once");
    await rig.user.cancel(request);
    assert.equal(codeOf(await request), "USER_CANCELLED");
  });

  attack("what an allowed site has signed is shown before the certificates, and stands in the journal", async (t) => {
    const { origin, page } = await rig.freshPage(t, { allowed: true });
    const request = ask(page, "signAuthToken", ["what is signed"]);
    await rig.user.certificateWindow();
    assert.equal((await shown(rig)).text, "what is signed");
    await rig.user.chooseAndLogIn(request);
    assert.ok((await request).value);
    const { lines } = await rig.extension.evaluate(() => (globalThis.browser ?? globalThis.chrome).runtime.sendMessage({ type: "journal" }));
    const entry = JSON.parse(lines.at(-1));
    const digest = createHash("sha256").update("what is signed").digest("hex");
    assert.deepEqual([entry.origin, entry.operation, entry.digest, entry.outcome], [origin, "signAuthToken", digest, "signed"]);
    assert.equal((await rig.program.running()).length, 1);
    await rig.extension.evaluate(() => (globalThis.browser ?? globalThis.chrome).runtime.sendMessage({ type: "stopHost" }));
    await rig.program.gone();
  });
}
