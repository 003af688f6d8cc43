// What pdf.js leaves out of a page without a word.

import assert from "node:assert/strict";
import { test } from "node:test";

import { PDFDocument, PDFName } from "pdf-lib";

import "./pdf/pdfjs-in-node.mjs";
import { checkComplete, load } from "../../extension/viewer/drawing.js";
import "./catalogue.mjs";
import { jbig2 } from "./pdf/pictures.mjs";

/** A document with this content and resources, made with `objects(context)`, on its only page. */
async function made(content, objects) {
  const document = await PDFDocument.create();
  const { context } = document;
  const { node } = document.addPage([300, 300]);
  node.set(PDFName.of("Contents"), context.register(context.stream(content)));
  node.set(PDFName.of("Resources"), context.obj(objects(context)));
  return document.save();
}

async function check(bytes) {
  const { document } = await load(bytes);
  try {
    await checkComplete(document, await document.getPage(1));
  } finally {
    await document.loadingTask.destroy();
  }
}

const PAINT = "q 200 0 0 200 20 20 cm /I Do Q";
const stream = (content, dictionary) => (context) => ({ XObject: { I: context.register(context.stream(content, dictionary)) } });
const picture = (content, filter) =>
  stream(content, { Subtype: "Image", Width: 128, Height: 128, ColorSpace: "DeviceGray", BitsPerComponent: 1, Filter: filter });
const form = (context) => {
  const inner = context.stream(PAINT, { Subtype: "Form", BBox: [0, 0, 300, 300], Resources: picture(jbig2(4), "JBIG2Decode")(context) });
  return { XObject: { I: context.register(inner) } };
};
const inline = (filter, content) => `q 200 0 0 200 20 20 cm BI /W 16 /H 16 /CS /G /BPC 8 /F /${filter} ID ${content} EI Q`;

for (const [what, words, content, objects] of [
  ["a picture that pdf.js cannot decode", /^Error: a picture in it cannot be read/, PAINT, picture(jbig2(4), "JBIG2Decode")],
  ["such a picture within a form", /^Error: a picture in it cannot be read/, "/I Do", form],
  ["a damaged picture within the content", /^Error: something in it cannot be read/, inline("DCT", "nothing"), () => ({})],
  ["a part of no known kind", /^Error: something in it cannot be read/, PAINT, stream("", { Subtype: "Unknown" })],
  ["a font that is missing", /^Error: a font in it cannot be read/, "BT /F 12 Tf 10 10 Td (Pay 99999) Tj ET", () => ({})],
]) {
  test(`A page with ${what} is not whole`, async () => {
    const bytes = await made(content, objects);
    await assert.rejects(check(bytes), words);
  });
}

/** A document with a stamp, whose appearance has this content. */
async function stamped(content) {
  const document = await PDFDocument.create();
  const { context } = document;
  const normal = context.register(context.stream(content, { Subtype: "Form", BBox: [0, 0, 100, 100] }));
  const stamp = { Type: "Annot", Subtype: "Stamp", Rect: [0, 0, 100, 100], F: 4, AP: { N: normal } };
  document.addPage([300, 300]).node.set(PDFName.of("Annots"), context.obj([context.register(context.obj(stamp))]));
  return document.save();
}

test("A page with a note or stamp that cannot be read is not whole, and with one that can be it is", async () => {
  await check(await stamped("0 0 50 50 re f"));
  const bytes = await stamped(`0 0 50 50 re f ${inline("DCT", "nothing")}`);
  await assert.rejects(check(bytes), /^Error: a note in it cannot be read/);
});

test("A page with a picture that pdf.js can decode is whole", async () => {
  await check(await made(PAINT, picture(jbig2(0), "JBIG2Decode")));
});
