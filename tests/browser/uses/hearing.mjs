// What a screen reader is given to say: the question with the button that has the keyboard, what changes, and a document's words.

import assert from "node:assert/strict";

import { PDFDocument } from "pdf-lib";

import { ask, GST_TEXT, sleep, waitFor, withdraw } from "../../lib/browser-kit.mjs";
import { askToSign, pdfPage } from "./pdf.mjs";

const CONSENT = "/consent/consent.html";
const VIEWER = "/viewer/viewer.html";

/** The name, description and state of what has the keyboard, from the page's own attributes. */
const focusedWords = () => {
  const { activeElement: element } = document;
  const ids = element.getAttribute("aria-describedby").split(" ");
  const description = ids.map((id) => document.getElementById(id).textContent.trim().replaceAll(/\s+/g, " ")).join(" ");
  return { name: element.textContent, description };
};

export function hearingTests({ name, rig, browserTest }) {
  const hearingTest = (what, body) => browserTest(`hearing: ${what}`, body);

  /** As the page says it; in Chromium as the browser's own tree for screen readers has it. */
  async function heard(path) {
    if (name !== "chromium") return rig.extension.at(path, focusedWords);
    const node = (await rig.extension.accessibilityTree(path)).find(({ role, properties = [] }) =>
      role.value === "button" && properties.some((each) => each.name === "focused" && each.value.value));
    return { name: node.name.value, description: node.description.value };
  }

  hearingTest("with the button that has the keyboard the site and the question are read, and once that the buttons are live", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "signGstReturn", [GST_TEXT]);
    const id = await rig.user.consentWindow(origin);
    const { name: button, description } = await heard(CONSENT);
    assert.equal(button, "Don't allow");
    const parts = ["Allow this site to use your crypto token?", origin, "You have never allowed this site", "It asks you to sign this text, for a GST return", "The whole text: "];
    for (const part of parts) assert.ok(description.includes(part), `${part} in: ${description}`);
    assert.ok(!description.includes("is shown as a part of"), "what is not there is not read");
    // What is read again and again is not listened to.
    const said = await rig.extension.at(CONSENT, () => {
      window.said = [];
      new MutationObserver(() => window.said.push(document.getElementById("readiness").textContent))
        .observe(document.getElementById("readiness"), { childList: true, characterData: true, subtree: true });
      return document.getElementById("readiness").textContent;
    });
    assert.equal(said, "The buttons take your answer now.");
    // It waits once more when it was behind another window.
    await rig.user.bringToFront(await rig.user.browserWindow("Test page"));
    await waitFor("the wait", () => rig.extension.consent(() => document.documentElement.classList.contains("waits")));
    await rig.user.bringToFront(id);
    await rig.user.consentWindow(origin);
    assert.deepEqual(await rig.extension.at(CONSENT, () => window.said), []);
    await rig.user.press(id, "Escape");
    await request;
  });

  hearingTest("for a frame the page around it is read too", async (t) => {
    const { frame, origin } = await rig.framedPage(t);
    const request = ask(frame, "selectCertificate");
    await rig.user.consentWindow(origin);
    assert.match((await heard(CONSENT)).description, /This site is shown as a part of http/);
    await withdraw(frame);
    await request;
  });

  hearingTest("the words of a document's pages can be read, with what hides in them, and a page without words says so", async (t) => {
    const made = await PDFDocument.create();
    made.addPage([400, 500]).drawText("Pay 100 rupees\nto nobody", { x: 40, y: 400, size: 16 });
    made.addPage([400, 500]).drawRectangle({ x: 40, y: 40, width: 100, height: 100 });
    const form = made.getForm();
    const field = form.createTextField("amount");
    field.setText("a\u00a0field");
    field.addToPage(made.getPage(0), { x: 40, y: 40, width: 100, height: 20 });
    const origin = await rig.freshOrigin(t);
    const request = askToSign(await pdfPage(rig, t, { origin }), [{ content: Buffer.from(await made.save()).toString("base64") }]);
    await rig.user.documentsWindow(origin);
    const { description } = await heard(VIEWER);
    for (const part of ["It asks you to sign what you see here", origin]) assert.ok(description.includes(part), description);
    await rig.extension.at(VIEWER, () => document.querySelector(".page:last-child").scrollIntoView());
    const pages = await waitFor("both pages", async () => {
      const found = await rig.extension.at(VIEWER, () => [...document.querySelectorAll(".page")].map((page) => ({
        name: page.getAttribute("aria-label"), words: page.querySelector(".unseen")?.textContent, canvas: page.querySelector("canvas")?.ariaHidden,
        marks: [...page.querySelectorAll(".mark")].map(({ textContent }) => textContent),
      })));
      return found.every(({ words }) => words) && found;
    });
    assert.deepEqual(pages, [
      { name: "Page 1", words: "Pay 100 rupees\nto nobody\naU+00A0field", canvas: "true", marks: ["U+00A0"] },
      { name: "Page 2", words: "This page holds no words that can be read aloud.", canvas: "true", marks: [] },
    ]);
    if (name === "chromium") {
      const tree = await rig.extension.accessibilityTree(VIEWER);
      assert.ok(tree.some(({ ignored, role, name: text }) => !ignored && role.value === "StaticText" && text.value.includes("Pay 100 rupees")));
    }
    await rig.user.answerDocuments(origin, "deny");
    await request;
  });

  hearingTest("what the popup has done is said by a place that was there before", async (t) => {
    await rig.page(t);
    const close = await rig.extension.openInFront("/popup/popup.html");
    await sleep(500);
    const state = await rig.extension.at("/popup/popup.html", () => {
      const place = document.getElementById("announcement").parentElement;
      return { role: place.getAttribute("role"), isThere: place.checkVisibility() };
    });
    assert.deepEqual(state, { role: "status", isThere: true });
    await close();
  });
}
