// A page gives a text whose letters would be drawn in another order than they are signed in. Measured is where each glyph stands.

import assert from "node:assert/strict";

import { waitFor } from "../../lib/browser-kit.mjs";
import { openQuestion } from "../lib/attacker.mjs";
import { askToSign, documentOf, pdfPage } from "../uses/pdf.mjs";

const HOSTILE = [
  '{"دفع":"100","tax":100,"ألف":99999}',
  "دفع 100 ألف 200 روبية 300",
  "دفع (100) [200] {300} <400> ألف",
  "pay 100, دفع: 9.50 / 7 - 3 % ألف! end?",
  "\u202eدفع 100\u202c ألف \u2067سلام 700\u2069 8",
  "\u200f100 دفع\u200f 200 \u061c300 ألف\u200e 4",
  "٣٤ سلام 56 ۷۸ عالم ٪9",
  "ا00 ا 00 1ا1 xاx ה0 ס5",
  'שלום "abc" עולם 12:30 שָׁלוֹם־עוֹלָם',
  "می\u200cخواهم 5 کتاب\u200c 6 نہیں۔ 7",
  `دفع${" ".repeat(120)}1 ألف\u00a02\u3000ألف 3`,
  "سلام،100؛200؟300 ـــــ 400",
];
const WORDS = "سلام عالم ".repeat(10_000); // more than 100 KB
const SEARCHED = "أول ثاني ثالث رابع";

/** Where the parts of an element's text stand, in the order in which they are signed: each letter, mark, and piece of a run of words. */
const placesIn = (selector) => {
  const boxOf = ({ left, right, top, bottom }) => ({ left, right, middle: (top + bottom) / 2 });
  const places = [];
  const texts = document.createTreeWalker(document.querySelector(selector), NodeFilter.SHOW_TEXT);
  let last;
  for (let node = texts.nextNode(); node; node = texts.nextNode()) {
    const whole = node.parentElement.closest(".run") ?? node.parentElement.closest(".mark");
    if (whole) {
      if (whole !== last) places.push({ text: whole.textContent, boxes: [...whole.getClientRects()].map(boxOf) });
      last = whole;
      continue;
    }
    for (let at = 0; at < node.length; at++) {
      const range = document.createRange();
      range.setStart(node, at);
      range.setEnd(node, at + 1);
      const [box] = range.getClientRects();
      if (/\S/.test(node.data[at])) places.push({ text: node.data[at], boxes: [boxOf(box)] });
    }
  }
  return places;
};

/** Where the letters of the runs of words stand, each run by itself; every so many of a long one. */
const lettersOfRuns = (selector) => [...document.querySelectorAll(`${selector} .run`)].map((run) => {
  const letters = [];
  const texts = document.createTreeWalker(run, NodeFilter.SHOW_TEXT);
  for (let node = texts.nextNode(); node; node = texts.nextNode()) {
    if (node.parentElement.closest(".mark")) continue;
    for (let at = 0; at < node.length; at += Math.ceil(run.textContent.length / 2_000)) {
      if (!/\p{L}/u.test(node.data[at])) continue;
      const range = document.createRange();
      range.setStart(node, at);
      range.setEnd(node, at + 1);
      const [{ left, right, top, bottom }] = range.getClientRects();
      letters.push({ text: node.data[at], boxes: [{ left, right, middle: (top + bottom) / 2 }] });
    }
  }
  return letters;
});

const LINE = 8; // a mark stands some pixels higher or lower than the letters of its line

/** Asserts that each stands to the right of the one before, or to the left in a run of words, or in a line below. */
function assertInOrder(places, { isLeftwards = false } = {}) {
  assert.ok(places.length > 0);
  for (const [i, { text, boxes: [box] }] of places.entries()) {
    if (i === 0) continue;
    const before = { ...places[i - 1], box: places[i - 1].boxes.at(-1) };
    const isBelow = box.middle - before.box.middle > LINE;
    const isInLine = Math.abs(box.middle - before.box.middle) <= LINE;
    const isBehind = isLeftwards ? box.right <= before.box.right + 1 : box.left >= before.box.right - 1;
    assert.ok(isBelow || (isInLine && isBehind), `"${text}" behind "${before.text}": ${JSON.stringify([before.box, box])}`);
  }
}

export default function ({ rig, attack }) {
  const inConsent = async (t, text, body) => {
    const question = await openQuestion(rig, t, { operation: "signAuthToken", args: [text] });
    await rig.user.consentWindow(question.origin);
    await body(question);
    await rig.user.consent(question.origin, "deny");
  };

  attack("words of scripts from right to left turn nothing that stands around them, in a text", async (t) => {
    await inConsent(t, HOSTILE.join("\n"), async () => {
      const places = await rig.extension.consent(placesIn, "#text");
      assertInOrder(places);
      const letters = HOSTILE.join("").replaceAll(/\s/g, "").length;
      assert.ok(places.reduce((sum, { text }) => sum + text.length, 0) > letters, "all of the text is there");
      const runs = await rig.extension.consent(lettersOfRuns, "#text");
      assert.ok(runs.length > 25, `${runs.length} runs of words`);
      for (const run of runs) assertInOrder(run, { isLeftwards: true });
      await rig.screenshot("order-of-text");

      // Without isolation they would be turned, and be found here.
      await rig.extension.consent(() => {
        for (const each of document.querySelectorAll("#text .as-written, #text .run")) {
          each.style.unicodeBidi = "normal";
          each.removeAttribute("dir");
        }
      });
      const turned = await rig.extension.consent(placesIn, "#text");
      assert.throws(() => assertInOrder(turned));
    });
  });

  attack("nor do a hundred thousand bytes of such words, in many lines and parts", async (t) => {
    await inConsent(t, `begin 1 ${WORDS}2 end`, async () => {
      assertInOrder(await rig.extension.consent(placesIn, "#text"));
      const runs = await rig.extension.consent(lettersOfRuns, "#text");
      assert.ok(runs.length > 1, "the text is drawn in parts");
      for (const run of runs) assertInOrder(run, { isLeftwards: true });
    });
  });

  attack("a search in such words leaves them where they are", async (t) => {
    await inConsent(t, `1 ${SEARCHED} 2`, async () => {
      const before = await rig.extension.consent(lettersOfRuns, "#text");
      await rig.extension.consent((wanted) => {
        document.getElementById("wanted").value = wanted;
        document.getElementById("wanted").dispatchEvent(new Event("input"));
      }, "ثالث");
      await waitFor("the place", () => rig.extension.consent(() => document.querySelector("#text .run .found") !== null));
      const after = await rig.extension.consent(lettersOfRuns, "#text");
      assert.equal(after.length, 1);
      assert.deepEqual(after[0].map(({ text }) => text), before[0].map(({ text }) => text));
      for (const [i, { boxes: [{ left }] }] of after[0].entries()) assert.ok(Math.abs(left - before[0][i].boxes[0].left) < 1);
    });
  });

  attack("the same holds for a document's name and reason", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const [name, reason] = ["دفع 100 (ألف) 200 \u202eسلام 300.pdf", "موافق 100 على 200"];
    const request = askToSign(page, [{ content: await documentOf(1), name, reason }]);
    await rig.user.documentsWindow(origin);
    for (const selector of ["#name", "#adds"]) {
      assertInOrder(await rig.extension.documents(placesIn, selector));
      for (const run of await rig.extension.documents(lettersOfRuns, selector)) assertInOrder(run, { isLeftwards: true });
    }
    await rig.user.answerDocuments(origin, "deny");
    await request;
  });

  attack("a site's entries in the journal keep their order, whatever name is in the certificate", async (t) => {
    await rig.page(t);
    await rig.extension.evaluate(async () => {
      const { describe, row } = await import("../src/pages.js");
      const entry = { time: 0, origin: "https://tax.example.org", operation: "signAuthToken", algorithm: "SHA-256", digest: "00", outcome: "signed" };
      const { title, words } = describe({ ...entry, subject: "CN=دفع 100 ألف 200" });
      const list = Object.assign(document.createElement("ul"), { id: "tried", className: "list" });
      list.append(row(title, words));
      document.body.append(list);
    });
    assertInOrder(await rig.extension.evaluate(placesIn, "#tried"));
    await rig.extension.evaluate(() => document.getElementById("tried").remove());
  });
}
