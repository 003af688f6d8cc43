// The extension's own pages in each of its languages: all of a page is in it, and has room. Each test starts the browser anew.

import assert from "node:assert/strict";

import { PDFDocument } from "pdf-lib";

import { ask, askWithoutGesture, codeOf, gesture, sleep, waitFor, withdraw } from "../../lib/browser-kit.mjs";
import { catalogueOf } from "../../extension/catalogue.mjs";
import { messageOf } from "../../../extension/quillmark.js";
import { askToSign, documentOf, pdfPage } from "./pdf.mjs";

/** The extension's languages, by what the browsers call them. */
const LANGUAGES = { "en-US": "en", de: "de", "hi-IN": "hi", ta: "ta" };

/** A text for which the window has to say all that it can say of a text. */
const TEXT = `{"tax":100,"note":"जाँच சோதனை","tax":${"9".repeat(300)}}`;

/** What in a page has no room, overlaps, or is cut off; in words. To be called in the page. */
function crampedIn() {
  const isSeen = (element) => element.getClientRects().length > 0 && !element.closest(".unseen");
  const nameOf = (element) => `${element.id || element.tagName}: ${element.textContent.trim().slice(0, 60)}`;
  const all = [...document.querySelectorAll("body *")].filter(isSeen);
  const problems = [];
  const blame = (what, elements) => problems.push(...elements.map((element) => `${what}: ${nameOf(element)}`));

  const texts = all.filter((element) => element.matches("button, h1, h2, label, legend, p, .notice, .card, dt, dd, li"));
  // What scrolls is seen by scrolling, and high letters are seen beyond their line. What is in a line has no width of its own.
  blame("wider or higher than its place", texts.filter((element) => {
    const { overflowX, overflowY } = getComputedStyle(element);
    if (overflowX === "auto" || element.clientWidth === 0) return false;
    return element.scrollWidth > element.clientWidth || (overflowY !== "visible" && element.scrollHeight > element.clientHeight);
  }));
  blame("beyond the window's side", texts.filter((element) => {
    const { left, right } = element.getBoundingClientRect();
    return left < 0 || right > innerWidth;
  }));
  if (document.documentElement.scrollWidth > innerWidth) problems.push("the page scrolls sideways");

  const overlap = (one, other) => {
    const [a, b] = [one, other].map((element) => element.getBoundingClientRect());
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
  };
  const fields = all.filter((element) => element.matches("button, input, label, #page, #zoom, #found"));
  blame("over another", fields.filter((one) => fields.some((other) => other !== one && !one.contains(other) && !other.contains(one) && overlap(one, other))));

  const context = document.createElement("canvas").getContext("2d");
  blame("a placeholder without room", all.filter((element) => {
    if (!element.placeholder) return false;
    const { font, paddingLeft, paddingRight } = getComputedStyle(element);
    context.font = font;
    return context.measureText(element.placeholder).width > element.clientWidth - parseFloat(paddingLeft) - parseFloat(paddingRight);
  }));
  return problems;
}

/** Which addresses, digests and texts that are signed are drawn in letters of different widths. To be called in the page. */
function unevenIn() {
  const all = [...document.querySelectorAll(".origin, #sha256, #facts dd, #text")];
  const shown = all.filter((element) => element.getClientRects().length > 0 && element.textContent !== "" && !element.closest(".sentences"));
  return shown.map((element) => element.querySelector("[lang]") ?? element).filter((element) => {
    const [narrow, wide] = ["i", "W"].map((letter) => {
      const probe = element.appendChild(document.createElement("span"));
      probe.textContent = letter.repeat(9);
      const { width } = probe.getBoundingClientRect();
      probe.remove();
      return width;
    });
    return Math.abs(narrow - wide) > 0.5;
  }).map(({ textContent }) => textContent.slice(0, 60));
}

/** The words of a page, those left out that are marked as English. To be called in the page. */
function wordsIn() {
  const copy = document.documentElement.cloneNode(true);
  for (const element of copy.querySelectorAll('[lang="en"], script')) element.remove();
  const attributes = ["aria-label", "placeholder", "title"].flatMap((name) => [...copy.querySelectorAll(`[${name}]`)].map((element) => element.getAttribute(name)));
  const { lang, dir } = document.documentElement;
  return { lang, dir, words: [document.title, copy.textContent, ...attributes].join("\n") };
}

export function languageTests({ name, rig, browserTest }) {
  const english = Object.values(catalogueOf("en")).map(({ message }) => message.replace(/\$\d/g, "\0").split("\0")).flat()
    .map((piece) => piece.trim()).filter((piece) => piece.length > 12);

  for (const [browsers, language] of Object.entries(LANGUAGES)) {
    const catalogue = catalogueOf(language);
    const says = (key) => catalogue[key].message;

    /** Looks at a page of the extension; `evaluate(body)` calls a function in it. */
    async function look(what, evaluate) {
      const { lang, dir, words } = await evaluate(wordsIn);
      assert.deepEqual([lang, dir], [language, says("page_direction")], what);
      if (language !== "en") assert.deepEqual(english.filter((piece) => words.includes(piece)), [], `English in ${what}`);
      await sleep(300); // until it is drawn
      await rig.screenshot(`language-${language}-${what}`);
      assert.deepEqual(await evaluate(crampedIn), [], what);
      assert.deepEqual(await evaluate(unevenIn), [], `letters of different widths in ${what}`);
    }

    const consent = (body, ...args) => rig.extension.consent(body, ...args);
    const documents = (body, ...args) => rig.extension.documents(body, ...args);
    const isThere = (evaluate, selector) => waitFor(selector, () => evaluate((wanted) => document.querySelector(wanted)?.getClientRects().length > 0, selector));

    async function lookAtQuestions(t) {
      for (const [operation, ...args] of [
        ["signGstReturn", TEXT], ["selectCertificate"], ["signItReturn", "aGFzaA==", "ABCDE1234F"],
        ["signPdfHash", Buffer.alloc(32, 7).toString("base64"), rig.certificate.thumbprint],
      ]) {
        const { page } = await rig.freshPage(t);
        const request = ask(page, operation, args);
        await isThere(consent, "#once");
        await look(`consent-${operation}`, consent);
        if (operation === "signGstReturn") {
          await consent(() => {
            document.getElementById("answers").hidden = true;
            document.getElementById("always-step").hidden = false;
          });
          await look("consent-always", consent);
        }
        await withdraw(page);
        assert.equal(codeOf(await request), "ABORTED");
        await waitFor("the window to close", async () => (await rig.extension.consentPages()) === 0);
      }
      const { page, frame } = await rig.framedPage(t);
      await gesture(frame);
      askWithoutGesture(frame, "signAuthToken", ["token"]).catch(() => {}); // it goes with its page
      await isThere(consent, "#framed");
      await look("consent-framed", consent);
      await page.close();
    }

    async function lookAtStatement(t) {
      const { page } = await rig.freshPage(t, { allowed: true });
      const request = ask(page, "signAuthToken", ["token"], { lang: browsers });
      await isThere(consent, "#stop");
      await look("statement", consent);
      await withdraw(page);
      assert.equal((await request).message, messageOf("ABORTED", language));
      await rig.program.gone(); // with its window
    }

    async function lookAtDocuments(t) {
      const page = await pdfPage(rig, t, { origin: await rig.freshOrigin(t) });
      const document = await PDFDocument.load(Buffer.from(await documentOf(2), "base64"));
      document.addJavaScript("open", "app.alert('x')");
      await document.attach(Buffer.from("abc"), "notes.txt");
      const content = Buffer.from(await document.save()).toString("base64");
      const given = { content, reason: "जाँचा गया", location: "சென்னை", visible: true };
      const request = askToSign(page, [{ ...given, name: "first.pdf" }, { content: btoa("%PDF-1.7"), name: "broken.pdf" }, { ...given, name: "second.pdf" }]);
      await waitFor("the documents", () => documents(() => document.getElementById("sign")?.disabled === false));
      await look("documents", documents);
      await page.evaluate(() => window.withdrawal.abort());
      const refused = (await request)[1];
      assert.ok(refused.message.startsWith(says("refusal_document").replace("$1", "").trim()), refused.message);
    }

    async function lookAtTabs(t) {
      await rig.freshPage(t, { allowed: true });
      for (const path of ["/popup/popup.html", "/options/options.html", "/viewer/gone.html"]) {
        const tab = await rig.extension.openTab(path);
        const what = /(\w+)\.html/.exec(path)[1];
        await waitFor(path, () => tab.evaluate(() => document.documentElement.lang !== ""));
        await tab.show();
        if (what === "options") {
          await isThere(tab.evaluate, "#journal li");
          await look("settings", tab.evaluate);
          await tab.evaluate(() => document.getElementById("examine").click());
          await waitFor("the doctor's words", () => tab.evaluate(() => !document.getElementById("copy-report").hidden), { timeout: 120_000 });
          await tab.evaluate(() => document.getElementById("doctor-title").scrollIntoView());
        }
        if (what === "popup") await isThere(tab.evaluate, "#signatures li");
        await look(what, tab.evaluate);
        await tab.close();
      }
    }

    browserTest(`in a browser that speaks ${browsers}, all of the extension's pages are in its language, and have room for it`, async (t) => {
      t.after(() => rig.restartBrowser());
      await rig.restartBrowser({ language: browsers });
      assert.equal(await rig.extension.evaluate(() => (globalThis.browser ?? globalThis.chrome).i18n.getUILanguage()), name === "chromium" && language === "hi" ? "hi" : browsers);
      for (const lookAt of [lookAtQuestions, lookAtStatement, lookAtDocuments, lookAtTabs]) await lookAt(t);
    });
  }
}
