// Documents by many makers, each signed once and once more, before pdfsig, qpdf and mutool.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";

import "./pdf/pdfjs-in-node.mjs";
import { checkComplete, load } from "../../extension/viewer/drawing.js";
import { makeCorpus } from "./pdf/corpus.mjs";
import { facts, Signer } from "./pdf/sign.mjs";

let signer;
let documents;
before(async () => {
  signer = await Signer.create();
  documents = await makeCorpus(signer);
});
after(() => signer.remove());

test("A document of every maker is signed once and twice, and the judges find every signature valid", async () => {
  assert.ok(documents.length >= 40, `${documents.length} documents`);
  const table = [];
  const failures = [];
  for (const { maker, bytes } of documents) {
    try {
      const { pages, signatures, parts } = await facts(bytes);
      const had = signatures.length;
      const once = await signer.sign(bytes);
      await signer.judge(once, had + 1, bytes);
      const twice = await signer.sign(once);
      await signer.judge(twice, had + 2, bytes);
      const after = (await facts(twice)).signatures;
      assert.deepEqual(after.map(({ isWhole }) => isWhole), Array(had + 2).fill(true));
      assert.deepEqual(Buffer.compare(twice.subarray(0, bytes.length), bytes), 0);
      const version = new TextDecoder("latin1").decode(bytes.subarray(5, 8));
      table.push(`${maker}: PDF ${version}, ${pages} pages, ${bytes.length} bytes, ${parts.join(", ") || "all shown"}: valid, valid`);
    } catch (error) {
      failures.push(`${maker}: ${error.message}`);
    }
  }
  process.stderr.write(`${table.join("\n")}\n${2 * table.length} signed files judged\n`);
  assert.deepEqual(failures, []);
});

test("Every page of theirs can be drawn whole", async () => {
  for (const { maker, bytes } of documents) {
    const { document } = await load(new Uint8Array(bytes));
    for (let page = 1; page <= document.numPages; page++) {
      await assert.doesNotReject(async () => checkComplete(document, await document.getPage(page)), `${maker}, page ${page}`);
    }
    await document.loadingTask.destroy();
  }
});
