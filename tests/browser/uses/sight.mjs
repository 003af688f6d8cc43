// The extension's own pages for those who see badly: axe finds nothing in them, nothing is cut, and the answers are in the window.

import assert from "node:assert/strict";
import { readFile, writeFile } from "node:fs/promises";
import { createRequire } from "node:module";
import { join } from "node:path";

import { PDFDocument } from "pdf-lib";

import { ask, DIGEST, gesture, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { product } from "../../lib/quillmark.mjs";
import { askToSign, documentOf, pdfPage } from "./pdf.mjs";

const AXE = await readFile(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");
const RULES = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"];

/** What users set. */
const MODES = {
  light: {},
  dark: { isDark: true },
  "forced colours": { hasForcedColours: true },
  "forced colours, dark": { hasForcedColours: true, isDark: true },
  "reduced motion": { hasReducedMotion: true },
  "text of 200 %": { text: 2 },
  "320 pixels": { width: 320, height: 480 },
};

const CONSENT = "/consent/consent.html";
const VIEWER = "/viewer/viewer.html";
const OPTIONS = "/options/options.html";
const POPUP = "/popup/popup.html";

const NAMES = "नमस्ते வணக்கம் 你好 مرحبا بالعالم";
const TEXT = `{"gstin":"33ABCDE1234F1Z5","name":"${NAMES}","a":"\u200b","tax":100,"tax":200,"note":"${"long ".repeat(200)}"}`;

const axeFindings = async (rules) => {
  const { violations } = await globalThis.axe.run({ runOnly: { type: "tag", values: rules } });
  const inOneLine = (text) => text.replaceAll(/\s+/g, " ");
  return violations.flatMap(({ id, nodes }) => nodes.map(({ target, failureSummary }) => `${id} ${target}: ${inOneLine(failureSummary)}`));
};

/**
 * What is cut off, or reached by scrolling sideways only; the drawn pages and the text to be signed scroll by themselves. And
 * a button out of the window, or the keyboard at a place that is not to be seen.
 */
const misplaced = () => {
  const wrong = [];
  const { clientWidth, scrollWidth } = document.documentElement;
  if (scrollWidth > clientWidth) wrong.push(`the page is ${scrollWidth} wide, in a window of ${clientWidth}`);
  const isSeen = (element) => element.checkVisibility() && !element.closest(".unseen, #pages, #text");
  for (const element of [...document.body.querySelectorAll("*")].filter(isSeen)) {
    const name = `${element.tagName}#${element.id}.${element.className} "${element.textContent.slice(0, 30)}"`;
    const { left, right } = element.getBoundingClientRect();
    if (left < 0 || right > clientWidth + 0.5) wrong.push(`${name} from ${left} to ${right}`);
    const { overflowX, display } = getComputedStyle(element);
    // A field is the browser's own, and is moved in by keys.
    if (element.tagName !== "INPUT" && overflowX !== "visible" && display !== "inline" && element.scrollWidth > element.clientWidth + 1) wrong.push(`${name} scrolls sideways`);
  }
  const { activeElement: focused, body } = document;
  // Behind the host's window it has no ring.
  if (focused !== body && document.hasFocus()) {
    const { outlineStyle, outlineWidth, outlineColor } = getComputedStyle(focused);
    const [ring, around] = [outlineColor, getComputedStyle(body).backgroundColor].map((colour) => new globalThis.axe.commons.color.Color().parseString(colour));
    const contrast = globalThis.axe.commons.color.getContrast(ring, around);
    const isSeen = outlineStyle !== "none" && parseFloat(outlineWidth) >= 2 && contrast >= 3;
    if (!isSeen) wrong.push(`the ring around ${focused.id} is not seen: ${outlineStyle} ${outlineWidth} ${outlineColor}`);
  }
  for (const button of document.querySelectorAll("footer button")) {
    const { top, bottom, width } = button.getBoundingClientRect();
    if (width > 0 && (top < 0 || bottom > innerHeight + 0.5)) wrong.push(`the button ${button.id} from ${top} to ${bottom} of ${innerHeight}`);
  }
  return wrong;
};

export function sightTests({ name, rig, browserTest }) {
  /** Looks at a page in one of its states, in all modes. */
  async function look(path, state, { size = {} } = {}) {
    const found = [];
    await rig.extension.at(path, `() => { ${AXE}; }`);
    for (const [mode, settings] of Object.entries(MODES)) {
      await rig.extension.see(path, { ...size, ...settings });
      await sleep(300); // it is laid out anew
      const wrong = [...(await rig.extension.at(path, axeFindings, RULES)), ...(await rig.extension.at(path, misplaced))];
      found.push(...wrong.map((each) => `${mode}: ${each}`));
      const file = `${name}-sight-${`${state}-${mode}`.replaceAll(/\W+/g, "-")}.png`;
      await writeFile(join(product.screenshots, file), await rig.extension.picture(path));
    }
    await rig.extension.see(path, {});
    assert.deepEqual(found, [], state);
  }

  const sightTest = (what, body) => browserTest(`sight: ${what}`, body);

  async function question(t, operation, args, state) {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, operation, args);
    await rig.user.consentWindow(origin);
    if (state) await look(CONSENT, state);
    return { origin, request };
  }

  sightTest("the question, with a digest's facts, and its step for Always", async (t) => {
    const { origin, request } = await question(t, "selectCertificate", [], "question");
    const id = await rig.user.consentWindow(origin);
    await rig.user.press(id, "Tab");
    await rig.user.consentWindow(origin);
    await rig.user.press(id, "Return");
    await waitFor("the step", () => rig.extension.consent(() => !document.getElementById("always-step").hidden));
    await rig.user.consentWindow(origin);
    await look(CONSENT, "question, always");
    await rig.user.press(await rig.user.consentWindow(origin), "Escape");
    await request;
    const facts = await question(t, "signPdfHash", [DIGEST, rig.certificate.thumbprint], "question with facts");
    await rig.user.consent(facts.origin, "deny");
    await facts.request;
  });

  sightTest("the question with a text, laid out and searched, also of a frame", async (t) => {
    const { origin, request } = await question(t, "signGstReturn", [TEXT], "question with text");
    await rig.extension.consent(() => {
      document.querySelector("[value=laid-out]").click();
      const wanted = document.getElementById("wanted");
      wanted.value = "tax";
      wanted.dispatchEvent(new Event("input"));
    });
    await look(CONSENT, "question with text, laid out");
    await rig.user.consent(origin, "deny");
    await request;
    const framed = await rig.framedPage(t);
    await gesture(framed.frame);
    const second = ask(framed.frame, "signAuthToken", ["a token"]);
    await rig.user.consentWindow(framed.origin);
    await look(CONSENT, "question of a frame");
    await rig.user.consent(framed.origin, "deny");
    await second;
  });

  sightTest("what an allowed site has signed, and a question that is gone", async (t) => {
    const { page } = await rig.freshPage(t, { allowed: true });
    const request = ask(page, "signGstReturn", [TEXT]);
    await rig.user.certificateWindow();
    await look(CONSENT, "statement");
    await rig.user.cancel(request);
    await request;
    for (const path of [CONSENT, "/viewer/gone.html"]) {
      await waitFor("the windows to close", async () => (await rig.extension.consentPages()) === 0);
      const close = await rig.extension.openInFront(path);
      const isGone = () => [...document.querySelectorAll("h1")].some((each) => each.checkVisibility() && /no longer/.test(each.textContent));
      await waitFor("the words", () => rig.extension.at(path, isGone));
      await look(path, `gone, ${path.split("/")[1]}`);
      await close();
    }
  });

  sightTest("the example page, with what came of a document", async (t) => {
    const page = await rig.page(t, { path: "/index.html" });
    await page.evaluate(AXE);
    await page.evaluate(() => {
      document.getElementById("outcomes").append(Object.assign(document.createElement("li"), { textContent: "a.pdf: signed" }));
      document.getElementById("sign").ariaDisabled = "true";
    });
    for (const width of [1000, 320]) {
      await page.setViewport({ width, height: 600 });
      assert.deepEqual([...(await page.evaluate(axeFindings, RULES)), ...(await page.evaluate(misplaced))], []);
    }
  });

  sightTest("one document, with notices, and several, of which one cannot be signed", async (t) => {
    const made = await PDFDocument.load(Buffer.from(await documentOf(2), "base64"));
    await made.attach(Buffer.from("attached"), "attached.txt");
    const attaching = Buffer.from(await made.save()).toString("base64");
    const first = await rig.freshOrigin(t);
    const one = askToSign(await pdfPage(rig, t, { origin: first }), [{ content: attaching, name: "अनुबंध عقد.pdf", reason: "Approved", visible: true }]);
    await rig.user.documentsWindow(first);
    await look(VIEWER, "one document");
    await rig.user.answerDocuments(first, "deny");
    await one;
    const second = await rig.freshOrigin(t);
    const content = await documentOf(1);
    const documents = [{ content, name: "a.pdf" }, { content: content.slice(0, 400), name: "cut.pdf" }, { content, name: "b.pdf" }];
    const several = askToSign(await pdfPage(rig, t, { origin: second }), documents);
    await rig.user.documentsWindow(second);
    await look(VIEWER, "several documents");
    await rig.user.answerDocuments(second, "sign");
    await rig.user.certificateWindow();
    await look(VIEWER, "several documents, being signed");
    await rig.user.cancel(several);
    await several;
  });

  sightTest("the popup and the settings, empty and full", async (t) => {
    const openPanel = async (path) => {
      const close = await rig.extension.openInFront(path);
      await waitFor("the page", () => rig.extension.at(path, () => document.readyState === "complete"));
      await sleep(500);
      return close;
    };
    const popup = { size: { width: 400, height: 600 } };
    await rig.page(t);
    let close = await openPanel(POPUP);
    await look(POPUP, "popup, at rest", popup);
    await close();
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "signGstReturn", [TEXT]);
    await rig.user.consent(origin, "page");
    await rig.user.cancel(request);
    await rig.allow("https://tax.example.org");
    const other = await rig.freshPage(t);
    const waiting = ask(other.page, "signGstReturn", [TEXT]);
    await rig.user.consentWindow(other.origin);
    close = await openPanel(POPUP);
    await rig.extension.at(POPUP, () => document.getElementById("examine").click());
    await waitFor("the doctor", () => rig.extension.at(POPUP, () => !document.getElementById("copy-report").hidden));
    await look(POPUP, "popup, full", popup);
    await close();
    await rig.user.consent(other.origin, "deny");
    await waiting;
    close = await openPanel(OPTIONS);
    await rig.extension.at(OPTIONS, () => document.getElementById("examine").click());
    await waitFor("the doctor", () => rig.extension.at(OPTIONS, () => !document.getElementById("copy-report").hidden));
    await look(OPTIONS, "settings, full");
    await close();
  });
}
