// Whole documents: shown in the extension's window, signed there, and judged by pdfsig, qpdf, mutool and openssl.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";

import { PDFDocument } from "pdf-lib";

import { run, waitFor } from "../../program/lib/process.mjs";
import { bytes, gesture } from "./rig.mjs";

/** A page that has documents signed: `signDocuments([Base64], options)` gives what became of each, `last` the newest promise. */
export const PDF_PAGE = `<script type="module">
  import { signPdfs, signPdf } from "./quillmark.js";
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
    const given = documents.map(({ content, ...more }) => ({ document: content ? fromBase64(content) : window.made(more), ...more }));
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

export function pdfTests({ rig, browserTest, check }) {
  rig.addPage("/pdf", PDF_PAGE);

  async function judge(value, count = 1) {
    const file = join(rig.world.folder, "signed.pdf");
    await writeFile(file, bytes(value));
    const report = await check(rig.world.judges.pdf(file));
    assert.equal(report.split("Signature is Valid.").length - 1, count, report);
    await run("qpdf", ["--check", file]);
  }

  browserTest("signPdf shows the document in a window, and what comes back is that document with a signature", async (t) => {
    const page = await pdfPage(rig, t);
    const content = await documentOf(2);
    const request = askToSign(page, [{ content, name: "contract.pdf", reason: "Approved", location: "Chennai" }]);
    await rig.user.documentsWindow(rig.origin);
    await rig.screenshot("documents-one-page");
    const shown = await rig.extension.documents(() => ({
      name: document.querySelector("#name").textContent,
      facts: document.querySelector("#facts").textContent,
      page: document.querySelector("#page").textContent,
      canvases: document.querySelectorAll("#pages canvas").length,
    }));
    assert.deepEqual(shown, {
      name: "contract.pdf", facts: `2 pages, ${bytes(content).length.toLocaleString()} bytes, no signature yet.`, page: "Page 1 of 2",
      canvases: 2,
    });
    const id = await rig.user.answerDocuments(rig.origin, "sign");
    await rig.user.chooseAndLogIn(request);
    const [{ value, ...failure }] = await request;
    assert.ok(value, JSON.stringify(failure));
    await judge(value);
    assert.ok(bytes(value).subarray(0, bytes(content).length).equals(bytes(content)));
    await rig.user.gone(id);
  });
}
void waitFor;
