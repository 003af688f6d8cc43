// Documents whose author has certified them: which signatures they still take (ISO 32000-1, 12.8.2.2).

import assert from "node:assert/strict";
import { after, before, test } from "node:test";

import { PDFDocument, PDFName, PDFRef } from "pdf-lib";

import { withSignatureField } from "../../extension/src/pdf/field.js";
import { opened } from "../../extension/src/pdf/document.js";
import { joined } from "../../extension/src/pdf/bytes.js";
import { facts, Signer } from "./pdf/sign.mjs";

let signer;
before(async () => (signer = await Signer.create()));
after(() => signer.remove());

const SEEN = { page: 0, rectangle: [10, 10, 100, 50], picture: () => ({ width: 1, height: 1, rgb: new Uint8Array(3) }) };

async function made(change) {
  const document = await PDFDocument.create();
  document.addPage().drawText("A contract");
  change(document);
  return document.save({ useObjectStreams: false });
}

/** A document that its author has certified with this permission, as it stands in the file; "" leaves it out. */
async function certified(permission) {
  const plain = await made(({ context, catalog }) => {
    // The signature is the first object that is added.
    catalog.set(PDFName.of("Perms"), context.obj({ DocMDP: PDFRef.of(context.largestObjectNumber + 1, 0) }));
  });
  const rule = `<< /Type /TransformParams /V /1.2 ${permission && `/P ${permission}`} >>`;
  const reference = `/Reference [ << /Type /SigRef /TransformMethod /DocMDP /TransformParams ${rule} >> ]`;
  const field = await withSignatureField(opened(plain), { signer: "The author", reason: "x".repeat(100), time: new Date(), room: 8192 });
  // In the place of the reason, so that all else stays where it is.
  const insert = (bytes) => {
    const text = Buffer.from(bytes).toString("latin1");
    return new Uint8Array(Buffer.from(text.replace(/\/Reason <[0-9A-F]+>/, (found) => reference.padEnd(found.length)), "latin1"));
  };
  const covered = insert(field.covered);
  return insert(joined([plain, field.insert(await signer.cms(covered))]));
}

/** Neither are facts told of it nor is it prepared for a signature. */
async function refused(bytes, words) {
  const isIt = ({ code, message }) => code === "DOCUMENT_REFUSED" && words.test(message);
  await assert.rejects(facts(bytes), isIt);
  await assert.rejects(signer.sign(bytes), isIt);
}

test("A certified document is whole as it comes, and names its certification in its catalogue", async () => {
  const bytes = await certified("2");
  assert.deepEqual((await facts(bytes)).signatures.map(({ isWhole, coversAll }) => [isWhole, coversAll]), [[true, true]]);
  await signer.judge(bytes, 1, bytes);
  const file = opened(bytes);
  const { Type, Reference } = Object.fromEntries(file.member(file.member(file.catalog, "Perms"), "DocMDP").entries().map(([key, value]) => [key.decodeText(), value]));
  assert.equal(Type.decodeText(), "Sig");
  assert.ok(Reference);
});

test("A certification that permits nothing, or what nobody knows, is refused; one that permits signatures is kept whole by one", async () => {
  for (const permission of ["1", "0", "4", "2.5", "/Two", "(2)"]) await refused(await certified(permission), /forbids every change/);
  for (const permission of ["2", "3", ""]) {
    const bytes = await certified(permission);
    const signed = await signer.sign(bytes);
    await signer.judge(signed, 2, bytes);
    assert.deepEqual((await facts(signed)).signatures.map(({ isWhole, coversAll }) => [isWhole, coversAll]), [[true, false], [true, true]]);
  }
});

// What is seen on a page is an annotation.
test("A signature that is seen is refused where the author permits signatures alone, and taken where he permits notes", async () => {
  const isRefused = ({ code, message }) => code === "DOCUMENT_REFUSED" && /permits no signature that is seen/.test(message);
  for (const permission of ["2", ""]) await assert.rejects(signer.sign(await certified(permission), { appearance: SEEN }), isRefused);
  const bytes = await certified("3");
  const signed = await signer.sign(bytes, { appearance: SEEN });
  await signer.judge(signed, 2, bytes);
});

test("A certification that forbids changes is refused, wherever it is named; one that allows signatures is not", async () => {
  for (const [permission, isRefused] of [[1, true], [2, false], [3, false]]) {
    for (const place of ["field", "lock", "catalog"]) {
      const bytes = await made(({ context, catalog }) => {
        const reference = { Type: "SigRef", TransformMethod: "DocMDP", TransformParams: { Type: "TransformParams", P: permission } };
        const signature = context.register(context.obj({ Type: "Sig", Reference: [reference] }));
        if (place === "catalog") catalog.set(PDFName.of("Perms"), context.obj({ DocMDP: signature }));
        else if (place === "lock") {
          const field = context.obj({ FT: "Sig", V: context.obj({ Type: "Sig" }), Lock: { Type: "SigFieldLock", Action: "All", P: permission } });
          catalog.set(PDFName.of("AcroForm"), context.obj({ Fields: [context.register(field)] }));
        } else catalog.set(PDFName.of("AcroForm"), context.obj({ Fields: [context.register(context.obj({ FT: "Sig", V: signature }))] }));
      });
      if (isRefused) await refused(bytes, /forbids every change/);
      else assert.equal((await facts(bytes)).pages, 1);
    }
  }
});
