// Whole documents: shown in the extension's window, signed there, and judged by pdfsig, qpdf, mutool and openssl.

import assert from "node:assert/strict";
import { createHash, randomBytes } from "node:crypto";
import { readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { PDFDocument, PDFName } from "pdf-lib";

import { bytesOf, gesture, run, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { product } from "../../lib/quillmark.mjs";
import { signaturesIn } from "../../extension/pdf/sign.mjs";
import { TimeStampAuthority } from "../../extension/pdf/time-stamps.mjs";

/** A page that has documents signed: `signDocuments([Base64], options)` gives what became of each, `last` the newest promise. */
export const PDF_PAGE = `<script type="module">
  import { signPdfs } from "./quillmark.js";
  const fromBase64 = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
  const toBase64 = async (bytes) => (await new Promise((resolve) => {
    const reader = new FileReader();
    reader.onload = () => resolve(reader.result);
    reader.readAsDataURL(new Blob([bytes]));
  })).split(",")[1];
  const plain = ({ code, message, detail }) => ({ code, message, detail });
  window.results = [];
  window.signDocuments = async (documents, options = {}) => {
    window.withdrawal = new AbortController();
    const bytesOf = async (url) => new Uint8Array(await (await fetch(url)).arrayBuffer());
    const given = await Promise.all(documents.map(async ({ content, url, ...more }) => ({
      document: url ? await bytesOf(url) : fromBase64(content), ...more,
    })));
    window.given = given;
    try {
      const outcomes = await signPdfs(given, {
        signal: withdrawal.signal, onResult: (i, { status }) => window.results.push([i, status, performance.now()]), ...options,
        chain: options.chain?.map(fromBase64), timestamp: window.timestamp,
      });
      return Promise.all(outcomes.map(async ({ value, reason }) => (reason ? plain(reason) : { value: await toBase64(value) })));
    } catch (error) {
      return [plain(error)];
    }
  };
</script>`;

/** A document of so many pages, in Base64. */
export async function documentOf(pages, text = "A contract") {
  const document = await PDFDocument.create();
  for (let i = 1; i <= pages; i++) document.addPage([400, 500]).drawText(`${text}, page ${i}`, { x: 40, y: 400, size: 16 });
  return Buffer.from(await document.save()).toString("base64");
}

/** Has a page ask for signatures on documents after a click of the user's. */
export async function askToSign(page, documents, options) {
  await gesture(page);
  return page.evaluate((...given) => window.signDocuments(...given), documents, options);
}

export async function pdfPage(rig, t, options) {
  const page = await rig.page(t, { path: "/pdf", ...options });
  await page.waitForFunction("window.signDocuments");
  return page;
}

/** What the window that shows documents says: the texts of elements by their ids. */
export const textsIn = (rig, ...ids) =>
  rig.extension.documents((wanted) => wanted.map((id) => document.getElementById(id).textContent), ids);

export function pdfTests({ name, rig, browserTest, check, allowedPage }) {
  rig.addPage("/pdf", PDF_PAGE);

  async function judge(value, count = 1) {
    const file = join(rig.world.folder, "signed.pdf");
    await writeFile(file, bytesOf(value));
    const report = await check(rig.world.judges.pdf(bytesOf(value)));
    assert.equal(report.split("Signature is Valid.").length - 1, count, report);
    await run("qpdf", ["--check", file]);
  }

  // A site that nobody has refused or allowed.
  async function freshPage(t) {
    const origin = await rig.freshOrigin(t);
    return { origin, page: await pdfPage(rig, t, { origin }) };
  }

  browserTest("signPdf shows the document in a window, and what comes back is that document with a signature", async (t) => {
    const { page, origin } = await freshPage(t);
    const content = await documentOf(2);
    const request = askToSign(page, [{ content, name: "contract.pdf", reason: "Approved", location: "Chennai" }]);
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-one-page");
    await waitFor("the pages", async () => (await rig.extension.documents(() => document.querySelectorAll("#pages canvas").length)) > 0);
    const size = bytesOf(content).length.toLocaleString("en-US");
    assert.deepEqual(await textsIn(rig, "origin", "name", "facts", "page", "sha256", "adds"), [
      origin, "contract.pdf", `2 pages, ${size} bytes, no signature yet.`, "Page 1 of 2",
      `SHA-256 ${createHash("sha256").update(bytesOf(content)).digest("hex")}`, "Your signature says: reason: Approved; place: Chennai.",
    ]);
    const id = await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    assert.ok(value, JSON.stringify(failure));
    await judge(value);
    assert.ok(bytesOf(value).subarray(0, bytesOf(content).length).equals(bytesOf(content)));
    await rig.user.gone(id);

    // Once more: the signature that it has now is told of, and stays whole.
    const again = askToSign(page, [{ content: value }]);
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-signed");
    assert.match((await textsIn(rig, "signatures"))[0], /^Signed by .+: whole\. Who has issued/);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.choose(again);
    await judge((await again)[0].value, 2);
  });

  browserTest("a time stamp that the page gets, and a chain, are in the signature; nothing of the document stays in the extension", async (t) => {
    const { page, origin } = await freshPage(t);
    const { folder, authority } = rig.world;
    const file = async (file, content) => (await writeFile(join(folder, file), content), join(folder, file));
    const stamps = await TimeStampAuthority.create({ folder, authority, file });
    await page.exposeFunction("answerTo", async (request) => Buffer.from(await stamps.answer(bytesOf(request))).toString("base64"));
    await page.evaluate(() => {
      window.timestamp = async (digest, request) =>
        Uint8Array.from(atob(await window.answerTo(btoa(String.fromCharCode(...request)))), (each) => each.charCodeAt(0));
    });
    const content = await documentOf(1, "A text that must not stay");
    const chain = [(await readFile(join(folder, "ca.der"))).toString("base64")];
    const request = askToSign(page, [{ content }], { chain });
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    assert.ok(value, JSON.stringify(failure));
    await judge(value);
    const [{ signature }] = signaturesIn(bytesOf(value));
    await stamps.judge(signature);

    const kept = await rig.extension.evaluate(async () => {
      const { local, session } = (globalThis.browser ?? globalThis.chrome).storage;
      return { stored: JSON.stringify([await local.get(), await session.get()]), databases: await indexedDB.databases(), caches: await caches.keys() };
    });
    assert.deepEqual([kept.databases, kept.caches], [[], []]);
    for (let at = 0; at + 40 < content.length; at += 200) assert.ok(!kept.stored.includes(content.slice(at, at + 40)));
  });

  browserTest("several documents: one question, one certificate, one PIN; one that cannot be signed leaves the others whole", async (t) => {
    const { page, origin } = await freshPage(t);
    const content = await documentOf(1);
    const documents = [{ content, name: "a.pdf" }, { content: content.slice(0, 400), name: "cut.pdf" }, { content, name: "b.pdf" }];
    const request = askToSign(page, documents);
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-several");
    assert.match((await textsIn(rig, "list"))[0], /a\.pdf1 page.*cut\.pdfThis document cannot be signed: its end is missing.*b\.pdf1 page/s);
    assert.deepEqual(await textsIn(rig, "name", "sign"), ["a.pdf", "Sign 2 documents, 1 not opened"]);
    await rig.extension.documents(() => document.querySelector("#next").click());
    await waitFor("the other document", async () => (await textsIn(rig, "sign"))[0] === "Sign 2 documents");
    assert.deepEqual(await textsIn(rig, "name"), ["b.pdf"]);
    assert.equal(await rig.extension.documents(() => document.querySelector("#next").hidden), true);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [a, cut, b] = await request;
    assert.equal(cut.code, "DOCUMENT_REFUSED");
    for (const { value } of [a, b]) await judge(value);
  });

  browserTest("Stop ends the signing, and the program with its windows; nothing is signed", async (t) => {
    const { page, origin } = await freshPage(t);
    const request = askToSign(page, [{ content: await documentOf(1) }]);
    const id = await rig.user.answerDocuments(origin, "sign");
    await rig.user.certificateWindow();
    await rig.user.answerDocuments(origin, "stop");
    assert.equal((await request)[0].code, "USER_CANCELLED");
    await rig.user.gone(id);
    await waitFor("the program to end", async () => (await rig.program.running()).length === 0);
  });

  browserTest("a document that cannot be signed is told in words, and its window closes by itself", async (t) => {
    const { page } = await freshPage(t);
    const [{ code, message }] = await askToSign(page, [{ content: btoa("<html>") }]);
    assert.deepEqual({ code, message }, { code: "DOCUMENT_REFUSED", message: "This document cannot be signed: it is no PDF document." });
    const other = await freshPage(t);
    // It has a page more than it says: pdf.js would not draw that, and other readers may.
    const document = await PDFDocument.create();
    for (let i = 0; i < 2; i++) document.addPage();
    const saved = Buffer.from(await document.save({ useObjectStreams: false }));
    const lying = Buffer.from(saved.toString("latin1").replace("/Count 2", "/Count 1"), "latin1");
    const [{ message: words }] = await askToSign(other.page, [{ content: lying.toString("base64") }]);
    assert.match(words, /readers find different pages in it/);
    const third = await freshPage(t);
    const [{ code: ofChain }] = await askToSign(third.page, [{ content: await documentOf(1) }], { chain: [btoa("no certificate")] });
    assert.equal(ofChain, "INVALID_ARGUMENT");
    assert.equal(await rig.extension.documents(() => 1), undefined);
  });

  browserTest("a document with a page that cannot be drawn is not signed, and the others are", async (t) => {
    const { page, origin } = await freshPage(t);
    const document = await PDFDocument.create();
    for (let i = 0; i < 3; i++) document.addPage([400, 500]).drawText(`Page ${i + 1}`);
    // No canvas can draw a pattern of dashes that is none.
    const { context } = document;
    document.getPage(2).node.set(PDFName.of("Contents"), context.register(context.stream("/Bad gs 0 0 m 100 100 l S")));
    document.getPage(2).node.set(PDFName.of("Resources"), context.obj({ ExtGState: { Bad: { D: 5 } } }));
    const toItsEnd = () => rig.extension.documents(() => {
      const pages = document.querySelector("#pages");
      pages.scrollTop = pages.scrollHeight;
    });
    const broken = Buffer.from(await document.save()).toString("base64");
    const request = askToSign(page, [{ content: broken, name: "broken.pdf" }, { content: await documentOf(1), name: "good.pdf" }]);
    await rig.user.documentsWindow(origin);
    await toItsEnd();
    await waitFor("the other document", async () => (await textsIn(rig, "sign"))[0] === "Sign 1 document");
    await rig.screenshot("documents-broken-page");
    assert.deepEqual(await textsIn(rig, "name"), ["good.pdf"]);
    const words = /This document cannot be signed: its page 3 cannot be drawn/;
    assert.match((await textsIn(rig, "list"))[0], words);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [refused, { value }] = await request;
    assert.equal(refused.code, "DOCUMENT_REFUSED");
    assert.match(refused.message, words);
    await judge(value);
    const alone = await freshPage(t);
    const second = askToSign(alone.page, [{ content: broken }]);
    await rig.user.documentsWindow(alone.origin);
    await toItsEnd();
    assert.match((await second)[0].message, words);
  });

  browserTest("when the extension is stopped, its window throws the document away, and says that nothing is open", async (t) => {
    const { page, origin } = await freshPage(t);
    void askToSign(page, [{ content: await documentOf(1) }]).catch(() => {});
    const id = await rig.user.documentsWindow(origin);
    assert.equal(await rig.extension.documents(() => document.querySelectorAll("canvas").length), 1);
    await rig.extension.stopBackground();
    await waitFor("the page of the document to go", async () => (await rig.extension.documents(() => true)) === undefined);
    await rig.screenshot("documents-gone");
    await rig.user.press(id, "ctrl+w");
    await rig.user.gone(id);
  });

  browserTest("the user draws the place of a visible signature with the mouse, and it is there in the signed file", async (t) => {
    const { page, origin } = await freshPage(t);
    const request = askToSign(page, [{ content: await documentOf(1), visible: true, reason: "जाँचा गया" }]);
    const id = await rig.user.documentsWindow(origin);
    const box = await rig.extension.documents(() => {
      const { x, y, width, height } = document.querySelector(".page").getBoundingClientRect();
      return { x, y, width, height, top: outerHeight - innerHeight };
    });
    const at = (across, down) => ({ id, x: box.x + box.width * across, y: box.top + box.y + Math.min(box.height, 300) * down });
    await rig.user.hands.drag(at(0.5, 0.2), at(0.9, 0.6));
    await sleep(500); // until it is drawn anew
    await waitFor("the page", () => rig.extension.documents(() => document.querySelector("#pages").ariaBusy === "false"));
    await rig.user.documentsWindow(origin);
    await rig.screenshot("documents-visible");
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    assert.ok(value, JSON.stringify(failure));
    await judge(value);
    const [, left] = /\/Rect \[ ([\d.]+) /.exec(bytesOf(value).subarray(bytesOf(await documentOf(1)).length - 300).toString("latin1"));
    assert.ok(Math.abs(Number(left) - 200) < 15, `it begins in the middle of 400 points: ${left}`);
  });

  if (name === "chromium") {
    browserTest("the window for documents is complete in the dark, and at 200 %", async (t) => {
      const { page, origin } = await freshPage(t);
      const request = askToSign(page, [{ content: await documentOf(2), name: `${"a long name ".repeat(10)}.pdf`, reason: "Approved" }]);
      await rig.user.documentsWindow(origin);
      const window = await rig.extension.documentsPage();
      const picture = (what) => window.screenshot({ path: join(product.screenshots, `chromium-documents-${what}.png`) });
      await window.emulateMediaFeatures([{ name: "prefers-color-scheme", value: "dark" }]);
      await picture("dark");
      assert.notEqual(await window.evaluate(() => getComputedStyle(document.body).backgroundColor), "rgb(244, 246, 249)");
      await window.setViewport({ width: 450, height: 400, deviceScaleFactor: 2 });
      await picture("200-percent");
      const hidden = await window.evaluate(() => ["sign", "deny", "origin", "name", "pages"].filter((id) => {
        const { left, right, top, bottom, height } = document.getElementById(id).getBoundingClientRect();
        return height === 0 || left < 0 || right > innerWidth || top < 0 || (id !== "pages" && bottom > innerHeight);
      }));
      assert.deepEqual(hidden, []);
      await window.setViewport(null);
      await rig.user.answerDocuments(origin, "deny");
      await request;
    });
  }

  browserTest("3,000 pages and 20 MB are shown, and scrolled to their end", async (t) => {
    const content = await largeDocument(3000, 20 * 1024 * 1024);
    await writeFile(join(rig.extensions, "example/large.pdf"), content);
    const { page, origin } = await freshPage(t);
    const start = Date.now();
    const request = askToSign(page, [{ url: "large.pdf", name: "large.pdf" }]);
    const id = await rig.user.documentsWindow(origin);
    process.stderr.write(`${name}: 3,000 pages, ${content.length} bytes: ready for the answer after ${Date.now() - start} ms\n`);
    await rig.screenshot("documents-3000-pages");
    const scrolled = await rig.extension.documents(async () => {
      const pages = document.querySelector("#pages");
      const begun = performance.now();
      pages.scrollTop = pages.scrollHeight;
      const last = () => document.querySelector("#pages .page:last-child canvas");
      while (!last()) await new Promise((resolve) => setTimeout(resolve, 10));
      return { time: performance.now() - begun, canvases: document.querySelectorAll("#pages canvas").length };
    });
    process.stderr.write(`${name}: the last page is drawn ${Math.round(scrolled.time)} ms after the jump to it\n`);
    assert.ok(scrolled.canvases < 20, `${scrolled.canvases} pages are kept`);
    assert.deepEqual(await textsIn(rig, "page"), ["Page 3,000 of 3,000"]);
    await rig.user.answerDocuments(origin, "deny");
    assert.equal((await request)[0].code, "ORIGIN_DENIED");
    await rig.user.gone(id);
  });

  browserTest("50 MB are signed", async (t) => {
    const content = await largeDocument(10, 50 * 1024 * 1024);
    await writeFile(join(rig.extensions, "example/large.pdf"), content);
    const { page, origin } = await freshPage(t);
    const start = Date.now();
    const request = askToSign(page, [{ url: "large.pdf", name: "large.pdf" }]);
    await rig.user.documentsWindow(origin);
    const shown = Date.now();
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    process.stderr.write(`${name}: ${content.length} bytes: shown after ${shown - start} ms, signed after ${Date.now() - shown} ms more\n`);
    assert.ok(value, JSON.stringify(failure));
    await judge(value);
  });

  browserTest("a hundred documents in one call, with one PIN", async (t) => {
    const { page, origin } = await freshPage(t);
    const documents = await Promise.all(Array.from({ length: 100 }, async (_, i) => ({ content: await documentOf(1, `Contract ${i}`), name: `${i}.pdf` })));
    const start = Date.now();
    const request = askToSign(page, documents);
    await rig.user.documentsWindow(origin);
    process.stderr.write(`${name}: 100 documents: ready for the answer after ${Date.now() - start} ms\n`);
    await rig.screenshot("documents-hundred");
    assert.deepEqual(await textsIn(rig, "sign"), ["Sign 100 documents, 99 not opened"]);
    await rig.user.answerDocuments(origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const outcomes = await request;
    const times = (await page.evaluate(() => window.results)).map(([, , time]) => time);
    process.stderr.write(`${name}: 100 documents, ${Math.round(times[99] - times[0])} ms from the first signed one to the last\n`);
    assert.equal(outcomes.filter(({ value }) => value).length, 100, JSON.stringify(outcomes.find(({ value }) => !value)));
    for (const { value } of [outcomes[0], outcomes[50], outcomes[99]]) await judge(value);
    assert.equal((await rig.program.running()).length, 1);
  });

  browserTest("the example page signs documents of the user's own, and says what went wrong", async (t) => {
    const folder = await rig.world.cleanupOf(t).folder("own");
    const files = ["contract.pdf", "annex.pdf"].map((each) => join(folder, each));
    for (const file of files) await writeFile(file, bytesOf(await documentOf(1)));
    const page = await allowedPage(t, { path: "/index.html" });
    await page.waitForFunction(() => document.querySelector("#status").textContent.includes("is ready"));
    await (await page.$("#files")).uploadFile(...files);
    await page.click("#sign");
    const saved = page.waitForFunction(() => document.querySelectorAll("#outcomes a").length === 2, { timeout: 120_000 });
    await rig.user.answerDocuments(rig.origin, "sign");
    await rig.user.chooseAndLogIn(saved);
    await saved;
    const [{ download, value }] = await page.$$eval("#outcomes a", (links) => Promise.all(links.map(async ({ href, download }) => {
      const content = new Uint8Array(await (await fetch(href)).arrayBuffer());
      return { download, value: btoa(Array.from(content, (byte) => String.fromCharCode(byte)).join("")) };
    })));
    assert.equal(download, "contract-signed.pdf");
    await judge(value);
    await page.bringToFront();
    await rig.screenshot("example");
    await page.click("#sign");
    await rig.user.answerDocuments(rig.origin, "deny");
    await page.waitForFunction(() => document.querySelector("#outcomes").textContent.includes("USER_CANCELLED"));
    assert.equal(await page.evaluate(() => document.activeElement.id), "sign", "the button has the keyboard again");
  });
}

/** A document of so many pages, which is about as many bytes long. */
async function largeDocument(pages, length) {
  const document = await PDFDocument.create();
  for (let i = 1; i <= pages; i++) document.addPage([400, 500]).drawText(`Page ${i}`, { x: 40, y: 400, size: 16 });
  document.catalog.set(PDFName.of("Filling"), document.context.register(document.context.stream(randomBytes(length))));
  return Buffer.from(await document.save());
}
