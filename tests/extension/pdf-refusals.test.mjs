// Documents that are not signed, and the words for it.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { deflateSync } from "node:zlib";

import { PDFDocument, PDFName } from "pdf-lib";

import { MAX_PDF_BYTES, MAX_PDF_PAGES } from "../../extension/src/limits.js";
import { facts, prepared, run, Signer } from "./pdf/sign.mjs";

let signer;
before(async () => (signer = await Signer.create()));
after(() => signer.remove());

async function made(change = () => {}, options = {}) {
  const document = await PDFDocument.create();
  document.addPage().drawText("A contract");
  await change(document);
  return document.save({ useObjectStreams: false, ...options });
}

const latin1 = (bytes) => Buffer.from(bytes).toString("latin1");
const fromLatin1 = (text) => new Uint8Array(Buffer.from(text, "latin1"));

/** Neither are facts told of it nor is it prepared for a signature. */
async function refused(bytes, words) {
  const isIt = ({ code, message }) => code === "DOCUMENT_REFUSED" && words.test(message) && !/undefined|Error/.test(message);
  await assert.rejects(facts(bytes), isIt);
  await assert.rejects(prepared(bytes, { signer: "", time: new Date(), room: 4096 }), isIt);
}

test("An encrypted document is refused, also one that opens without a password", async () => {
  const file = await signer.file("plain.pdf", await made());
  const to = join(signer.folder, "encrypted.pdf");
  for (const password of ["", "secret"]) {
    await run("qpdf", ["--encrypt", password, "owner", "256", "--", file, to]);
    await refused(await readFile(to), /encrypted/);
  }
});

test("A document that was cut short anywhere is refused", async () => {
  const bytes = await made();
  for (const length of [10, 100, Math.floor(bytes.length / 2), bytes.length - 30, bytes.length - 5]) {
    await refused(bytes.slice(0, length), /its end is missing|no PDF/);
  }
});

test("Something before the head or behind the end is refused, and blanks at the end are not", async () => {
  const bytes = await made();
  await refused(Buffer.concat([Buffer.from("junk\n"), bytes]), /before its beginning/);
  await refused(Buffer.concat([bytes, Buffer.from("junk")]), /behind it/);
  await refused(Buffer.from("<html></html>"), /no PDF/);
  await refused(new Uint8Array(), /no PDF/);
  assert.equal((await facts(Buffer.concat([bytes, Buffer.from("\r\n\0\n")]))).pages, 1);
});

test("More than the limits is refused: bytes, pages, and parts that would fill the memory", async () => {
  await refused(new Uint8Array(MAX_PDF_BYTES + 1), /larger than/);
  await refused(await made(({ context, catalog }) => {
    const kid = context.register(context.obj({ Type: "Page" }));
    const kids = Array.from({ length: MAX_PDF_PAGES + 1 }, () => context.register(context.obj({ Type: "Page" })));
    catalog.set(PDFName.of("Pages"), context.register(context.obj({ Type: "Pages", Kids: [kid, ...kids], Count: kids.length + 1 })));
  }), /pages/);
  const bomb = latin1(deflateSync(Buffer.alloc(80 * 1024 * 1024)));
  const head = "%PDF-1.7\n";
  const stream = `1 0 obj\n<< /Type /XRef /W [1 2 1] /Size 2 /Root 1 0 R /Filter /FlateDecode /Length ${bomb.length} >>\nstream\n${bomb}\nendstream\nendobj\n`;
  await refused(fromLatin1(`${head}${stream}startxref\n${head.length}\n%%EOF`), /larger than those of a document/);
});

test("A page that is too thin or too large to be seen is refused, and the largest that there can be is not", async () => {
  const page = (box) => made((document) => document.addPage().node.set(PDFName.of("MediaBox"), document.context.obj(box)));
  for (const [box, words] of [
    [[0, 0, 2_000_000, 5], /its page 2 is larger/],
    [[0, 0, 5, 14_401], /its page 2 is larger/],
    [[0, 0, 400, 2], /its page 2 is too thin/],
    [[300, 0, 302, 400], /its page 2 is too thin/],
    [[0, 0, 400], /its page 2 is too thin/],
  ]) await refused(await page(box), words);
  for (const box of [[0, 0, 14_400, 3], [400, 500, 0, 0]]) assert.equal((await facts(await page(box))).pages, 2);
  // What is shown of a page is what its two boxes have in common.
  const cropped = (box) => made((document) => document.getPage(0).node.set(PDFName.of("CropBox"), document.context.obj(box)));
  await refused(await cropped([0, 0, 400, 1]), /its page 1 is too thin/);
  await refused(await cropped([594, 0, 9_000, 800]), /its page 1 is too thin/);
  assert.equal((await facts(await cropped([-50, -50, 9_000, 9_000]))).pages, 1);
  // And a box can be that of all pages.
  await refused(await made((document) => {
    document.getPage(0).node.delete(PDFName.of("MediaBox"));
    document.catalog.Pages().set(PDFName.of("MediaBox"), document.context.obj([0, 0, 2_000_000, 5]));
  }), /its page 1 is larger/);
});

test("A cross-reference that leads nowhere, in a circle or to another object is refused", async () => {
  const text = latin1(await made());
  await refused(fromLatin1(text.replace(/startxref\s+\d+/, "startxref\n5")), /damaged/);
  await refused(fromLatin1(text.replace(/startxref\s+\d+/, "startxref\n99999999")), /damaged/);
  const start = Number(/startxref\s+(\d+)/.exec(text)[1]);
  await refused(fromLatin1(text.replace(/trailer\s*<</, `trailer\n<< /Prev ${start} `)), /damaged/);
  await refused(fromLatin1(text.replace(/(\d{10}) 00000 n/g, "0000000009 00000 n")), /damaged/);
});

test("An object that only a search through the file would find is not taken for the one that counts", async () => {
  const text = latin1(await made());
  const number = /\/Root (\d+) 0 R/.exec(text)[1];
  const other = `\n${number} 0 obj\n<< /Type /Catalog /Pages 99 0 R >>\nendobj\n`;
  const at = text.lastIndexOf("xref", text.lastIndexOf("startxref") - 1);
  const shifted = (text.slice(0, at) + other + text.slice(at)).replace(/startxref\s+\d+/, `startxref\n${at + other.length}`);
  assert.equal((await facts(fromLatin1(shifted))).pages, 1);
  const signed = latin1(await signer.sign(fromLatin1(shifted)));
  assert.ok(!signed.slice(shifted.length).includes("99 0 R"), "what is appended refers to the catalogue that counts");
});

test("Nested arrays without end, and pages that are their own parents, are refused", async () => {
  const text = latin1(await made());
  const deep = "[".repeat(200_000);
  await refused(fromLatin1(text.replace(/trailer\s*<</, `trailer\n<< /Deep ${deep} `)), /damaged/);
  await refused(await made(({ context, catalog }) => {
    const ref = context.nextRef();
    context.assign(ref, context.obj({ Type: "Pages", Kids: [ref], Count: 1 }));
    catalog.set(PDFName.of("Pages"), ref);
  }), /damaged/);
});

test("Whatever a few changed bytes make of a document, it is read or refused, in words and in time", async () => {
  const random = numbersFrom(1);
  const plain = await made((document) => void document.getForm().createTextField("place").addToPage(document.getPage(0)));
  const documents = [plain, await made(() => {}, { useObjectStreams: true }), await signer.sign(plain)];
  const outcomes = { read: 0, refused: 0 };
  for (let round = 0; round < 1500; round++) {
    const bytes = documents[round % documents.length].slice();
    for (let i = 0; i <= random(4); i++) {
      const at = random(2) ? random(bytes.length) : bytes.length - 1 - random(Math.min(1500, bytes.length));
      bytes[at] = random(2) ? random(256) : "0123456789<>[]()/ R".charCodeAt(random(19));
    }
    const start = performance.now();
    try {
      await facts(bytes);
      await prepared(bytes, { signer: "", time: new Date(), room: 100 });
      outcomes.read++;
    } catch (error) {
      assert.equal(error.code, "DOCUMENT_REFUSED", `round ${round}: ${error.stack}`);
      outcomes.refused++;
    }
    assert.ok(performance.now() - start < 5_000, `round ${round} is slow`);
  }
  assert.ok(outcomes.read > 100 && outcomes.refused > 100, JSON.stringify(outcomes));
});

// The same numbers in each run: random(n) is one of 0 to n - 1.
function numbersFrom(seed) {
  let state = seed;
  return (n) => {
    state = (Math.imul(state, 1103515245) + 12345) >>> 0;
    return (state >>> 8) % n;
  };
}
