// Pages that want another document signed than the one that was shown, or an answer that nobody gave.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";

import { PDFDocument, PDFName } from "pdf-lib";

import { jbig2 } from "../../extension/pdf/pictures.mjs";
import { bytesOf, gesture, run, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { assertStruck, openCover, openRawChannel } from "../lib/attacker.mjs";
import { askToSign, documentOf, pdfPage, textsIn } from "../uses/pdf.mjs";

export default function ({ name, rig, attack }) {
  /** A page of its own origin that speaks without the library, and answers pieces from `window.content` (Base64), or never. */
  async function rawPage(t, content, { isSilent = false } = {}) {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin });
    await openRawChannel(page);
    await page.evaluate((given, isSilentPage) => {
      window.content = given;
      const { port, answers } = window.raw;
      const receive = port.onmessage;
      port.onmessage = (event) => {
        receive(event);
        const { type, id, number, query } = event.data;
        if (type !== "query" || isSilentPage) return;
        const text = query.what === "piece" ? window.piece(query) : "";
        port.postMessage({ type: "reply", id, number, text });
      };
      window.piece = ({ at, length }) => btoa(atob(window.content).slice(at, at + length));
      window.outcome = () => answers.find(({ query }) => query?.what === "outcome")?.query;
      window.end = () => answers.find(({ type }) => ["result", "error"].includes(type));
    }, content, isSilent);
    await gesture(page);
    const documents = JSON.stringify([{ name: "contract.pdf", size: bytesOf(content).length }]);
    await page.evaluate((text) => {
      window.raw.port.postMessage({ type: "request", id: 1, operation: "signPdfs", values: { documents: text }, timeout: 300_000 });
    }, documents);
    return { page, origin };
  }

  const endOf = (page) => waitFor("the end", () => page.evaluate(() => window.end()));

  async function isValid(document) {
    const file = join(rig.world.folder, "attacked.pdf");
    await writeFile(file, document);
    const { stdout } = await run("pdfsig", ["-nocert", file]).catch(({ stdout = "" }) => ({ stdout }));
    return stdout.toString().includes("Signature is Valid.");
  }

  attack("bytes that the page changes after the call are signed as they were at the call", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const content = await documentOf(1, "What was given");
    await page.evaluate(() => {
      const real = Blob;
      window.Blob = class extends real {
        constructor(...args) {
          super(...args);
          // As soon as the library has made its copy, the page changes what it gave.
          queueMicrotask(() => window.given?.forEach(({ document }) => document.fill(65)));
        }
      };
    });
    const request = askToSign(page, [{ content }]);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    assert.ok(value, JSON.stringify(failure));
    assert.ok(bytesOf(value).subarray(0, bytesOf(content).length).equals(bytesOf(content)));
    assert.ok(await isValid(bytesOf(value)));
  });

  attack("another document under the same name, sent while the first one is in sight, does not get its signature", async (t) => {
    const shown = await documentOf(1, "Pay 100");
    // Packed, texts of the same length need not be equally long.
    let other;
    for (let amount = 999; other?.length !== shown.length; amount--) other = await documentOf(1, `Pay ${amount}`);
    assert.notEqual(other, shown);
    const { page, origin } = await rawPage(t, shown);
    await rig.user.documentsWindow(origin);
    await page.evaluate((content) => {
      window.content = content;
      window.flood = setInterval(() => {
        for (let number = 1; number < 20; number++) window.raw.port.postMessage({ type: "reply", id: 1, number, text: content });
      }, 50);
    }, other);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(endOf(page));
    const { appended } = await waitFor("the outcome", () => page.evaluate(() => window.outcome()));
    assert.ok(await isValid(Buffer.concat([bytesOf(shown), bytesOf(appended)])), "what was shown is signed");
    assert.ok(!(await isValid(Buffer.concat([bytesOf(other), bytesOf(appended)]))), "and the other is not");
  });

  for (const [what, piece] of [
    ["more bytes than it said", "({ length }) => btoa('x'.repeat(length + 1))"],
    ["fewer bytes than it said", "() => btoa('x')"],
    ["no Base64", "() => '§§§'"],
    ["no text", "() => ({ length: 5 })"],
  ]) {
    attack(`a page that sends ${what} gets an error, and the token is not asked`, async (t) => {
      const content = await documentOf(1);
      const origin = await rig.freshOrigin(t);
      const page = await rig.page(t, { origin });
      await openRawChannel(page);
      await page.evaluate((body, size) => {
        const piece = (0, eval)(body);
        const { port, answers } = window.raw;
        port.onmessage = ({ data }) => {
          answers.push(data);
          if (data.type === "query") port.postMessage({ type: "reply", id: 1, number: data.number, text: piece(data.query) });
        };
        window.end = () => answers.find(({ type }) => ["result", "error"].includes(type));
        window.begin = () => port.postMessage({
          type: "request", id: 1, operation: "signPdfs", values: { documents: JSON.stringify([{ size }]) }, timeout: 60_000,
        });
      }, piece, bytesOf(content).length);
      await gesture(page);
      await page.evaluate(() => window.begin());
      assert.equal((await endOf(page)).type, "error");
      assert.deepEqual(await rig.program.running(), []);
    });
  }

  attack("a page that never gives its document does not hold the window: Escape and the button refuse it meanwhile", async (t) => {
    for (const refuse of [(id) => rig.user.press(id, "Escape"), (id) => rig.user.press(id, "Return")]) {
      const { page, origin } = await rawPage(t, await documentOf(1), { isSilent: true });
      const id = await rig.user.documentsSoon(origin);
      await rig.user.bringToFront(id);
      await waitFor("the button", () => rig.extension.documents(() => document.querySelector("#deny").ariaDisabled === "false"));
      assert.equal(await rig.extension.documents(() => document.querySelector("#sign").disabled), true);
      await rig.screenshot("documents-reading");
      await refuse(id);
      assert.equal((await endOf(page)).error.code, "ORIGIN_DENIED");
      await rig.user.gone(id);
    }
  });

  attack("a site that is allowed for good opens no window without a click, and waits after a refusal", async (t) => {
    const { origin, page } = await rig.freshPage(t, { allowed: true });
    await page.goto(`${origin}/pdf`);
    await page.waitForFunction("window.signDocuments");
    const documents = [{ content: await documentOf(1) }];
    const ask = (given) => page.evaluate((list) => window.signDocuments(list), given);
    for (let i = 0; i < 3; i++) assert.equal((await ask(documents))[0].code, "NOT_NOW");
    const request = askToSign(page, documents);
    await rig.user.answerDocuments(origin, "deny");
    assert.equal((await request)[0].code, "USER_CANCELLED");
    await gesture(page);
    assert.equal((await ask(documents))[0].code, "NOT_NOW");
  });

  async function openDocuments(t) {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const request = askToSign(page, [{ content: await documentOf(1) }]);
    let answer;
    request.then((given) => (answer = given), () => {});
    const id = await rig.user.documentsSoon(origin);
    return { origin, page, request, id, answer: () => answer };
  }

  async function assertUnanswered({ answer, origin }) {
    await sleep(1_000);
    assert.equal(answer(), undefined);
    assert.deepEqual(await rig.program.running(), []);
    assert.deepEqual(await textsIn(rig, "origin"), [origin]);
    assert.equal(await rig.extension.documents(() => document.querySelector("#answers").hidden), false);
  }

  attack("keys typed ahead, or held down, sign no document", async (t) => {
    const question = await openDocuments(t);
    await rig.user.hands.keys(Array(12).fill(["Tab", "Return"]).flat());
    await rig.user.hands.hold("Return", 2_000);
    await assertUnanswered(question);
  });

  attack("the second half of a double click on a window that covered the document is no answer", async (t) => {
    const question = await openDocuments(t);
    const place = await waitFor("Sign", () => rig.user.placeOfDocuments("#sign", question.id));
    await question.page.evaluate(() => (window.strike = (cover) => cover.close()));
    await openCover(rig, question.page, { left: 40, top: 0, width: 960, height: 768 });
    await sleep(1_500);
    await rig.user.hands.point(place);
    await rig.user.hands.click(2);
    if (name === "chromium") await assertStruck(question.page);
    await assertUnanswered(question);
  });

  /** A document of two pages, of which the second has this content and these resources. */
  async function documentWith(height, content, resources = () => ({})) {
    const document = await PDFDocument.create();
    document.addPage([600, height]).drawText("Harmless", { x: 20, y: 20 });
    const { context } = document;
    const { node } = document.addPage([600, 700]);
    node.set(PDFName.of("Contents"), context.register(context.flateStream(content)));
    node.set(PDFName.of("Resources"), context.obj(resources(context)));
    return Buffer.from(await document.save()).toString("base64");
  }

  async function refusedAsDrawn(t, content, words) {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const [{ code, message }] = await askToSign(page, [{ content }]);
    assert.equal(code, "DOCUMENT_REFUSED");
    assert.match(message, words);
  }

  attack("a document with a picture that is not drawn is not signed", async (t) => {
    const picture = { Subtype: "Image", Width: 128, Height: 128, ColorSpace: "DeviceGray", BitsPerComponent: 1, Filter: "JBIG2Decode" };
    const content = await documentWith(100, "q 200 0 0 200 20 20 cm /I Do Q", (context) => ({
      XObject: { I: context.register(context.stream(jbig2(4), picture)) },
    }));
    await refusedAsDrawn(t, content, /its page 2 cannot be drawn/);
  });

  attack("a document of which a part is left out by the drawing is not signed", async (t) => {
    await refusedAsDrawn(t, await documentWith(100, "BT /F 12 Tf 10 10 Td (Pay 99999) Tj ET"), /its page [12] cannot be drawn/);
    const inline = "q 200 0 0 200 20 20 cm BI /W 16 /H 16 /CS /G /BPC 8 /F /DCT ID nothing EI Q";
    await refusedAsDrawn(t, await documentWith(100, inline), /its page [12] cannot be drawn/);
  });

  const signState = () => rig.extension.documents(() => ({
    canSign: !document.querySelector("#sign").disabled,
    isArmed: document.querySelector("#sign").ariaDisabled === "false",
    drawn: document.querySelectorAll("#pages canvas").length,
  }));

  attack("a document cannot be signed while a page in sight is not drawn yet", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    // It takes seconds until its text is drawn.
    const heavy = `1 g\n${"0 0 600 700 re f\n".repeat(80_000)}0 g 50 300 500 100 re f\n`;
    const request = askToSign(page, [{ content: await documentWith(100, heavy) }]);
    await rig.user.documentsSoon(origin);
    const early = await waitFor("the first page", async () => {
      const state = await signState();
      return state?.drawn > 0 && state;
    });
    await rig.screenshot("documents-being-drawn");
    assert.equal(early.drawn, 1, "the second page is still being drawn");
    assert.equal(early.canSign, false);
    const after = await waitFor("Sign", async () => {
      const state = await signState();
      return state.canSign && state;
    }, { timeout: 120_000 });
    assert.equal(after.drawn, 2);
    assert.equal(after.isArmed, false, "it waits once more");
    await rig.user.answerDocuments(origin, "deny");
    await request;
  });

  attack("a very wide page leaves the others to be read", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const document = await PDFDocument.create();
    document.addPage([14_400, 20]);
    document.addPage([600, 700]).drawText("I owe you 99,999", { x: 50, y: 400, size: 40 });
    const request = askToSign(page, [{ content: Buffer.from(await document.save()).toString("base64") }]);
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-wide");
    const sizes = await rig.extension.documents(() =>
      [...document.querySelectorAll("#pages canvas")].map((canvas) => [canvas.width, canvas.height, canvas.getBoundingClientRect().width]));
    assert.equal(sizes.length, 2);
    for (const [width, height, shown] of sizes) assert.ok(width >= 300 && height >= 1 && shown >= 300, JSON.stringify(sizes));
    await rig.user.answerDocuments(origin, "deny");
    await request;
  });

  attack("a script in a document does not run, and is told of", async (t) => {
    const origin = await rig.freshOrigin(t);
    const page = await pdfPage(rig, t, { origin });
    const document = await PDFDocument.create();
    document.addPage();
    document.addJavaScript("open", "app.alert('x'); this.submitForm('http://localhost/');");
    await document.attach(Buffer.from("abc"), "notes.txt");
    const request = askToSign(page, [{ content: Buffer.from(await document.save()).toString("base64") }]);
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-parts");
    assert.match((await textsIn(rig, "parts"))[0], /attached files; scripts/);
    await rig.user.answerDocuments(origin, "deny");
    assert.equal((await request)[0].code, "ORIGIN_DENIED");
  });
}
