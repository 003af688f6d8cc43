// What a user hears who cannot see the screen, from a page's button to what came of it, by keys alone: in the browsers' own windows
// and the host's. A transcript holds the tree of each page that is shown, what then gets the keyboard, and what is said.

import assert from "node:assert/strict";
import { describe, test } from "node:test";

import { PDFDocument } from "pdf-lib";

import { bytesOf, Ears, expectTranscript, GST_TEXT, Rig, ScreenReader, treeLines, waitFor } from "../lib/browser-kit.mjs";
import { product } from "../lib/quillmark.mjs";
import { focusIn, keyboard } from "./lib/keyboard.mjs";

const BROWSER = { chromium: /^chromium$/, firefox: /^firefox-esr$/ };
const HOST = /^QMChromeExtHost$/;

const PAGE_BUTTON = 'focus push button "Sign"';
const LIVE = 'say "The buttons take your answer now."';
const SIGNED = 'say ""Signed""';

/** What the extension's windows say while they open, or in part, as the browser has it; the trees have all of it. */
const SAID_WHILE_OPENING = ["The buttons wait for a second.", "Reading…", "contract.pdf", "Page 1 of 1", "100 %"].map((text) => `say "${text}"`);

/**
 * Of what a browser tells: the buttons that get the keyboard, by their names, and what is said. The rest is up to chance, and what
 * it comes to is in the trees: titles that change while a window opens; the documents that have the keyboard on the way to its
 * button; and whether that still waits, which its state and description say, too.
 */
function steady(lines) {
  const told = lines.flatMap((line) => /^focus push button "[^"]*"|^say .*/.exec(line) ?? []);
  return told.filter((line) => !SAID_WHILE_OPENING.includes(line));
}

for (const name of ["chromium", "firefox"]) {
  describe(name, () => {
    const rig = Rig.forThisFile(name, product, { accessible: true });
    const { answer, keysPage } = keyboard(rig);

    /**
     * From the button of a page that calls `act` with `arg`, through the extension's window of this `title` and its `buttons`, the
     * first of which has the keyboard and the last of which signs. What is heard must be the transcript. Gives the page's window.signed.
     */
    async function signHearing(t, { act, arg, title, buttons, transcript }) {
      const start = async (program) => new Ears(await ScreenReader.start(rig.desktop, rig.world.cleanupOf(t), { program }), rig.desktop);
      // Each with a reader of its own: which of the two programs tells first is up to chance.
      const [browser, host] = [await start(BROWSER[name]), await start(HOST)];
      const heard = [];
      const hearPage = async (...titles) => heard.push(...treeLines(await browser.reader.page(...titles)));

      const { origin, page, window } = await keysPage(t, act, arg);
      await browser.hear(PAGE_BUTTON);
      await hearPage(rig.user.browserTitle("Test page"), "Test page");
      browser.forget();

      await rig.user.press(window, "Return");
      await browser.hear(new RegExp(`^focus push button "${buttons[0]}"`), LIVE);
      const whenLive = () => rig.desktop.window(rig.user.extensionTitle(title(origin)));
      const id = await whenLive();
      await hearPage(rig.user.extensionTitle(title(origin)), title(origin));
      for (const button of buttons.slice(1)) {
        await rig.user.press(id, "Tab");
        await browser.hear(`focus push button "${button}"`);
      }
      heard.push(...steady(browser.reader.lines()));
      browser.forget();

      await answer(id, whenLive);
      await host.hear(/^focus list item "user, .*selected$/);
      heard.push(...(await host.heardFrom()));
      host.forget();
      await host.press("Return");
      await host.enterPin("1234");
      await browser.hear(SIGNED);
      heard.push(...(await host.heardFrom(/^focus password text/)));
      // The page's button has the keyboard once more whenever a window has gone.
      heard.push(...steady(browser.reader.lines()).filter((line) => line !== PAGE_BUTTON));
      await waitFor("the page's button to have the keyboard", async () => (await page.evaluate(focusIn)).hasFocus);
      await hearPage(rig.user.browserTitle("Test page"), "Test page");

      const lines = heard.map((line) => line.replaceAll(origin, "http://the.site"));
      await expectTranscript(lines, new URL(`transcripts/${name}-${transcript}.txt`, import.meta.url));
      return page.evaluate(() => window.signed);
    }

    test(`${name}: a text is signed by ear: the page's button, the question, the certificates, the PIN, and that it is signed`, async (t) => {
      const signed = await signHearing(t, {
        act: (text) => {
          window.act = async () => {
            const { value, ...failure } = await window.ask("signGstReturn", [text]);
            window.signed = value;
            return value ? "Signed" : failure;
          };
        },
        arg: GST_TEXT,
        title: (origin) => `Quillmark - Allow ${origin}?`,
        buttons: ["Don't allow", "Always…", "Allow until this page closes", "Allow once"],
        transcript: "text",
      });
      assert.equal((await rig.world.judges.cms(bytesOf(signed))).toString(), GST_TEXT);
    });

    test(`${name}: a document is signed by ear: its words and what it is, the certificates, the PIN, and that it is signed`, async (t) => {
      const document = await PDFDocument.create({ updateMetadata: false }); // no date
      document.addPage([400, 500]).drawText("Pay 100 rupees to nobody", { x: 40, y: 400, size: 16 });
      const signed = await signHearing(t, {
        act: async (content) => {
          const { signPdf } = await import("./quillmark.js");
          const given = Uint8Array.from(atob(content), (character) => character.charCodeAt(0));
          window.act = async () => {
            const value = await signPdf(given, { name: "contract.pdf" });
            window.signed = btoa(Array.from(value, (byte) => String.fromCharCode(byte)).join(""));
            return "Signed";
          };
        },
        arg: Buffer.from(await document.save()).toString("base64"),
        title: (origin) => `Quillmark - Sign for ${origin}?`,
        buttons: ["Don't sign", "Sign"],
        transcript: "document",
      });
      await rig.world.judges.pdf(bytesOf(signed));
    });
  });
}
