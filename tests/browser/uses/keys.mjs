// The whole way by keys, without a mouse: from a page's button to the signature, through documents, popup and settings.

import assert from "node:assert/strict";
import { join } from "node:path";
import { readFile } from "node:fs/promises";

import { PDFDocument, PDFName } from "pdf-lib";

import { ask, bytesOf, GST_TEXT, waitFor } from "../../lib/browser-kit.mjs";
import { focusIn, keyboard } from "../lib/keyboard.mjs";
import { documentOf, textsIn } from "./pdf.mjs";

const CONSENT = "/consent/consent.html";
const VIEWER = "/viewer/viewer.html";
const OPTIONS = "/options/options.html";
const POPUP = "/popup/popup.html";

export function keysTests({ rig, browserTest, check }) {
  const keysTest = (what, body) => browserTest(`keys: ${what}`, body);

  const { tabTo, answer, inOwn, keysPage } = keyboard(rig);

  /** The host's windows: its first card by Return, then the PIN. */
  async function chooseAndLogIn() {
    const window = await rig.user.certificateWindow();
    await rig.user.window(); // its cards are there
    await rig.user.press(window, "Down", "Up", "Return");
    await rig.user.typePin();
  }

  async function outcomeOf(page) {
    await page.waitForFunction(() => document.getElementById("outcome").textContent, { timeout: 60_000 });
    // All windows have closed: the button has the keyboard again.
    await waitFor("the button to have the keyboard", async () => {
      const { id, hasFocus } = await page.evaluate(focusIn);
      return id === "go" && hasFocus;
    });
    return JSON.parse(await page.evaluate(() => document.getElementById("outcome").textContent));
  }

  keysTest("from the page's button through the question, the certificates and the PIN to the signature", async (t) => {
    const { origin, page, window } = await keysPage(t, (text) => {
      window.act = () => window.ask("signGstReturn", [text]);
    }, GST_TEXT);
    await rig.user.press(window, "Return");
    const id = await rig.user.consentWindow(origin);
    const focus = inOwn(CONSENT);
    assert.deepEqual(await focus(), { id: "deny", name: "Don't allow", isSeen: true, hasFocus: true });
    await tabTo(id, focus, "once");
    await answer(id, () => rig.user.consentWindow(origin));
    await chooseAndLogIn();
    const { value, ...failure } = await outcomeOf(page);
    assert.ok(value, JSON.stringify(failure));
    assert.equal((await check(rig.world.judges.cms(bytesOf(value)))).toString(), GST_TEXT);

    // Refused by Escape, the button has the keyboard too.
    await page.evaluate(() => (document.getElementById("outcome").textContent = ""));
    await rig.user.press(window, "Return");
    await rig.user.press(await rig.user.consentWindow(origin), "Escape");
    assert.equal((await outcomeOf(page)).code, "ORIGIN_DENIED");
  });

  keysTest("the text to be signed is searched, laid out and scrolled, and Always taken back", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const long = JSON.stringify(Object.fromEntries(Array.from({ length: 100 }, (_, i) => [`member ${i}`, i])));
    const request = ask(page, "signGstReturn", [long]);
    const id = await rig.user.consentWindow(origin);
    const focus = inOwn(CONSENT);
    await tabTo(id, focus, "text", "shift+Tab");
    await rig.user.press(id, "Down", "Next");
    await waitFor("the text to scroll", () => rig.extension.consent(() => document.getElementById("text").scrollTop > 50));
    await tabTo(id, focus, "wanted", "shift+Tab");
    await rig.user.desktop.type(id, "member 77");
    await rig.user.press(id, "Return");
    await waitFor("the place", () => rig.extension.consent(() => document.getElementById("found").textContent === "1 of 1"));
    await rig.user.press(id, "shift+Tab", "Right");
    await waitFor("the layout", () => rig.extension.consent(() => document.getElementById("text").textContent.includes('\n  "member 77": 77')));
    await tabTo(id, focus, "always");
    for (const next of ["back", "deny"]) {
      await answer(id, () => rig.user.consentWindow(origin));
      await waitFor(`${next} to have the keyboard`, async () => (await focus()).id === next);
    }
    await answer(id, () => rig.user.consentWindow(origin));
    assert.equal((await request).code, "ORIGIN_DENIED");
  });

  keysTest("documents are scrolled, made larger, opened in turn, and signed, with the signature where the arrows have put it", async (t) => {
    const { origin, page, window } = await keysPage(t, async (content) => {
      const library = await import("./quillmark.js");
      const document = Uint8Array.from(atob(content), (character) => character.charCodeAt(0));
      window.act = async () => {
        const given = [{ document, name: "a.pdf", visible: true }, { document, name: "b.pdf" }];
        const outcomes = await library.signPdfs(given).catch((error) => [{ reason: error }]);
        return outcomes.map(({ value, reason }) => (value ? btoa(Array.from(value, (byte) => String.fromCharCode(byte)).join("")) : reason.code));
      };
    }, await documentOf(2));
    await rig.user.press(window, "Return");
    const id = await rig.user.documentsWindow(origin);
    const focus = inOwn(VIEWER);
    assert.equal((await focus()).id, "deny");
    await tabTo(id, focus, "pages", "shift+Tab");
    await rig.user.press(id, "End");
    await waitFor("the last page", async () => (await textsIn(rig, "page"))[0] === "Page 2 of 2");
    await tabTo(id, focus, "larger", "shift+Tab");
    await rig.user.press(id, "Return");
    assert.deepEqual(await textsIn(rig, "zoom"), ["125 %"]);

    await tabTo(id, focus, "place", "shift+Tab");
    await rig.user.press(id, "Right", "Right", "Right", "Up", "Up", "shift+Right");
    await waitFor("the place", async () => /^On page 1: 210 points wide, 60 high, 66 from the left, 56 from below/.test((await textsIn(rig, "placed"))[0]));
    await rig.user.documentsWindow(origin);
    await rig.user.press(id, "Next");
    await waitFor("the other page", async () => /^On page 2: 210 points wide, 60 high, 66 from the left, 56 from below/.test((await textsIn(rig, "placed"))[0]));
    await rig.user.documentsWindow(origin);
    await rig.screenshot("keys-placed");
    assert.equal((await focus()).id, "place");

    await tabTo(id, focus, "next", "shift+Tab");
    await rig.user.press(id, "Return");
    await waitFor("the other document", async () => (await textsIn(rig, "name"))[0] === "b.pdf");
    await waitFor("the pages to have the keyboard", async () => (await focus()).id === "pages");
    await tabTo(id, focus, "sign");
    await answer(id, () => rig.user.documentsWindow(origin));
    await waitFor("the progress to have the keyboard", async () => (await focus()).id === "progress");
    await chooseAndLogIn();
    const signed = await outcomeOf(page);
    for (const each of signed) await check(rig.world.judges.pdf(bytesOf(each)));
    const document = await PDFDocument.load(bytesOf(signed[0]));
    const [first, second] = document.getPages().map((each) => each.node.Annots()?.asArray() ?? []);
    assert.deepEqual([first.length, second.length], [0, 1]);
    const rectangle = document.context.lookup(second[0]).get(PDFName.of("Rect")).asArray().map((each) => each.asNumber());
    assert.deepEqual(rectangle.map(Math.round), [66, 56, 276, 116]);
  });

  keysTest("in the popup a permission is taken back, and the computer checked; the keyboard is never lost", async (t) => {
    const { origin, page } = await rig.freshPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(origin, "page");
    await rig.user.cancel(request);
    const close = await rig.extension.openInFront(POPUP);
    const window = await rig.user.browserWindow("Quillmark");
    const focus = inOwn(POPUP);
    await waitFor("the permission", () => rig.extension.at(POPUP, () => document.querySelector("#allowed button") !== null));
    await tabTo(window, focus, `Take back the permission of ${origin}`);
    await rig.user.press(window, "Return");
    await waitFor("the settings' button to have the keyboard", async () => (await focus()).id === "settings");
    await tabTo(window, focus, "examine");
    await rig.user.press(window, "Return");
    await waitFor("the doctor", () => rig.extension.at(POPUP, () => !document.getElementById("copy-report").hidden));
    assert.equal((await focus()).id, "examine");
    await close();
  });

  keysTest("in the settings a site is removed, the minutes set, and the journal exported; the keyboard is never lost", async (t) => {
    const { page } = await rig.freshPage(t, { allowed: true });
    const request = ask(page, "signAuthToken", ["for the journal"]);
    await rig.user.cancel(request);
    await rig.allow("https://tax.example.org");
    const window = await rig.user.browserWindow("Test page");
    await rig.user.openTab(window, `${rig.browser.extensionUrl}${OPTIONS}`, "Quillmark - Settings");
    const focus = inOwn(OPTIONS);
    await tabTo(window, focus, "Remove https://tax.example.org");
    await rig.user.press(window, "Return");
    await waitFor("the site to go", () => rig.extension.settings(() => !document.getElementById("sites").textContent.includes("tax.example.org")));
    await waitFor("something else to have the keyboard", async () => /^Remove |^Sites that may/.test((await focus()).name));
    await tabTo(window, focus, "quietMinutes");
    await rig.user.press(window, "ctrl+a", "5", "Tab");
    await waitFor("the minutes", async () => (await rig.extension.settings(async () => {
      const { quietMinutes } = await (globalThis.browser ?? globalThis.chrome).storage.local.get("quietMinutes");
      return quietMinutes;
    })) === 5);
    await tabTo(window, focus, "export");
    await rig.user.press(window, "Return");
    const file = join(rig.home, "Downloads/quillmark-journal.jsonl");
    const journal = await waitFor("the journal", () => readFile(file, "utf8").catch(() => undefined));
    assert.match(journal, /signAuthToken/);
    assert.equal((await focus()).id, "export");
    await rig.user.press(window, "ctrl+w");
  });
}
