// Requests to sign documents, from the page library to the window that shows them, which here is the test.

import assert from "node:assert/strict";
import { test } from "node:test";

import { QuillmarkError } from "../../extension/quillmark.js";
import { MAX_DOCUMENTS, MAX_PDF_BYTES, PAGE_ANSWER_MS, REFUSAL_WAITS_MS } from "../../extension/src/limits.js";
import { ALLOWED, browser, DIGEST, portPair, rawChannel, RECORD, settle, SITE, start, stopClock, until } from "./fakes.mjs";

const actions = () => browser.program.requests.map(({ action }) => action);

/** The extension's window for documents, as its page does it. */
async function documentsWindow() {
  const found = () => [...browser.windows.open].find(([, url]) => url.startsWith("extension:documents"));
  await until(found);
  const [windowId, url] = found();
  const id = url.split("#")[1];
  const [page, background] = portPair("documents", {});
  browser.consent.connect(background);
  const calls = new Map();
  const window = { windowId, post: (message) => page.postMessage({ id, ...message }) };
  page.onMessage.addListener((message) => {
    if (message.type === "question") window.question = message.question;
    if (message.type === "return") calls.get(message.number)(message);
  });
  let last = 0;
  window.call = (name, values = {}) => new Promise((resolve) => {
    calls.set(++last, ({ value, error }) => resolve(error ? { error } : value));
    window.post({ type: "call", call: { number: last, name, values } });
  });
  window.close = () => page.disconnect();
  window.post({ type: "ready" });
  await until(() => window.question);
  return window;
}

async function asked(documents = [{ document: new Uint8Array([1, 2, 3]) }], options = {}, setting = ALLOWED) {
  start(setting);
  const page = await browser.page(SITE, options.page);
  const request = page.signPdfs(documents, options);
  request.catch(() => {});
  return { page, request, window: await documentsWindow() };
}

/** The user signs the one document, and the window does its work. */
async function signed({ request, window }) {
  window.post({ type: "answer", answer: "sign" });
  await window.call("choose");
  await window.call("sign", { hash: DIGEST });
  await window.call("tell", { document: 0, appended: btoa("tail") });
  window.post({ type: "finished" });
  await request;
}

const piece = async (window, document, at, length) => Buffer.from(await window.call("piece", { document, at, length }), "base64");

test("The window gets what the page gave, in pieces, and the page gets its bytes with what was appended", async () => {
  const bytes = Uint8Array.from({ length: 200_000 }, (_, i) => i % 251);
  const { request, window } = await asked([{ document: bytes, name: "a.pdf", reason: "Approved" }, { document: new Blob([bytes.subarray(7)]) }]);
  assert.deepEqual(window.question.documents, [
    { name: "a.pdf", size: 200_000, reason: "Approved", location: "", visible: false },
    { name: "document.pdf", size: 199_993, reason: "", location: "", visible: false },
  ]);
  assert.equal(window.question.origin, SITE);
  assert.deepEqual(await piece(window, 0, 0, 150_000), Buffer.from(bytes.subarray(0, 150_000)));
  assert.deepEqual(await piece(window, 1, 199_000, 5_000), Buffer.from(bytes.subarray(199_007)));
  window.post({ type: "answer", answer: "sign" });
  assert.equal((await window.call("choose")).CertThumbPrint, RECORD.CertThumbPrint);
  assert.equal(await window.call("sign", { hash: DIGEST }), btoa("signed by PdfSignFromToken"));
  await window.call("tell", { document: 0, appended: btoa("tail") });
  await window.call("tell", { document: 1, error: { code: "DOCUMENT_REFUSED", message: "It is encrypted." } });
  window.post({ type: "finished" });
  const [first, second] = await request;
  assert.deepEqual(Buffer.from(first.value), Buffer.concat([bytes, Buffer.from("tail")]));
  assert.equal(second.reason.code, "DOCUMENT_REFUSED");
  assert.equal(second.reason.message, "It is encrypted.");
  await until(() => browser.windows.open.size === 0);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken"]);
});

test("Bytes that the page changes after its call are as they were", async () => {
  const bytes = new Uint8Array([1, 2, 3, 4]);
  const { window } = await asked([{ document: bytes }]);
  bytes.fill(9);
  assert.deepEqual(await piece(window, 0, 0, 4), Buffer.from([1, 2, 3, 4]));
});

test("Before the user's answer the window gets no certificate and no signature", async () => {
  const { window } = await asked();
  let isServed = false;
  void window.call("choose").then(() => (isServed = true));
  await settle();
  assert.equal(isServed, false);
  assert.deepEqual(actions(), []);
});

test("An allowed site is asked each time; a refusal is USER_CANCELLED, and signs nothing", async () => {
  for (const end of [(window) => window.post({ type: "answer", answer: "deny" }), (window) => window.close()]) {
    const { request, window } = await asked();
    end(window);
    await assert.rejects(request, { code: "USER_CANCELLED" });
    assert.deepEqual(actions(), []);
    browser.close();
  }
});

test("A site that was never allowed is asked in the same window; a refusal is ORIGIN_DENIED, and Sign is for this once", async () => {
  const refused = await asked(undefined, {}, {});
  refused.window.post({ type: "answer", answer: "deny" });
  await assert.rejects(refused.request, { code: "ORIGIN_DENIED" });
  await assert.rejects(refused.page.signPdf(new Uint8Array([1])), { code: "ORIGIN_DENIED" });
  browser.close();
  const { page, request, window } = await asked(undefined, {}, {});
  window.post({ type: "answer", answer: "sign" });
  await window.call("choose");
  await window.call("tell", { document: 0, appended: btoa("tail") });
  window.post({ type: "finished" });
  assert.equal((await request)[0].status, "fulfilled");
  assert.equal((await page.status()).permission, "ask");
});

test("A page without a click, and one out of sight, open no window, allowed for good or not", async () => {
  for (const setting of [{}, ALLOWED]) {
    start(setting);
    const page = await browser.page(SITE, { clicked: false });
    await assert.rejects(page.signPdf(new Uint8Array([1])), { code: "NOT_NOW" });
    page.click();
    browser.isInSight = false;
    await assert.rejects(page.signPdf(new Uint8Array([1])), { code: "NOT_NOW" });
    assert.equal(browser.windows.open.size, 0);
    browser.close();
  }
});

test("A site that is allowed for good waits after a refusal before it opens the window again", async (t) => {
  const clock = stopClock(t);
  const { page, request, window } = await asked();
  window.post({ type: "answer", answer: "deny" });
  await assert.rejects(request, { code: "USER_CANCELLED" });
  page.click();
  await assert.rejects(page.signPdf(new Uint8Array([1])), { code: "NOT_NOW" });
  assert.equal(browser.windows.open.size, 0);
  clock.tick(REFUSAL_WAITS_MS[0]);
  void page.signPdf(new Uint8Array([1])).catch(() => {});
  await until(() => browser.windows.open.size === 1);
});

test("The certificate that was chosen for documents in sight does not sign unseen", async () => {
  const asking = await asked();
  await signed(asking);
  await asking.page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "GetSelCertFromToken", "PdfSignFromToken"]);
});

test("A program that was started anew meanwhile signs nothing with the choice of its run before", async () => {
  const { request, window } = await asked();
  window.post({ type: "answer", answer: "sign" });
  await window.call("choose");
  browser.host.close();
  assert.equal((await window.call("sign", { hash: DIGEST })).error.code, "HOST_EXITED");
  assert.deepEqual(actions(), ["GetSelCertFromToken"]);
  window.close();
  await assert.rejects(request, { code: "USER_CANCELLED" });
});

test("Closing the window in the middle, or a failure of the token, leaves what was signed before whole", async () => {
  const two = [{ document: new Uint8Array([1]) }, { document: new Uint8Array([2]) }];
  for (const [end, code] of [
    [(window) => window.close(), "USER_CANCELLED"],
    [(window) => window.call("fail", { code: "TOKEN_MISSING" }), "TOKEN_MISSING"],
  ]) {
    const seen = [];
    const { request, window } = await asked(two, { onResult: (i, { status }) => seen.push([i, status]) });
    window.post({ type: "answer", answer: "sign" });
    await window.call("choose");
    await window.call("tell", { document: 0, appended: btoa("tail") });
    void end(window);
    const [first, second] = await request;
    assert.deepEqual(Buffer.from(first.value), Buffer.from("\x01tail"));
    assert.equal(second.reason.code, code);
    assert.deepEqual(seen, [[0, "fulfilled"], [1, "rejected"]]);
    browser.close();
  }
});

test("A page that goes takes its window with it, and a withdrawal closes the window", async () => {
  const gone = await asked();
  await gone.page.close();
  await until(() => browser.windows.open.size === 0);
  browser.close();
  const controller = new AbortController();
  const { request } = await asked(undefined, { signal: controller.signal });
  controller.abort();
  await assert.rejects(request, { code: "ABORTED" });
  await until(() => browser.windows.open.size === 0);
});

test("A permission that is taken back while documents are signed ends it", async () => {
  const { request, window } = await asked();
  window.post({ type: "answer", answer: "sign" });
  await window.call("choose");
  await browser.service.revoke(SITE);
  await assert.rejects(request, { code: "ORIGIN_DENIED" });
});

test("The time stamp is the page's own function, given the digest and a request; its failure is TIMESTAMP_FAILED", async () => {
  const given = [];
  const timestamp = async (...bytes) => (given.push(bytes.map((each) => [...each])), new Uint8Array([7]));
  const { window } = await asked(undefined, { timestamp });
  assert.equal(window.question.timestamp, true);
  assert.equal(await window.call("timeStamp", { digest: btoa("\x01"), request: btoa("\x02") }), btoa("\x07"));
  assert.deepEqual(given, [[[1], [2]]]);
  browser.close();
  const failing = await asked(undefined, { timestamp: () => Promise.reject(new Error("no net")) });
  const { error } = await failing.window.call("timeStamp", { digest: "", request: "" });
  assert.equal(error.code, "TIMESTAMP_FAILED");
  assert.match(new QuillmarkError(error.code, error).message, /had signed already/, "what the token has done is not denied");
});

test("A page that never answers for a document, a time stamp or an outcome ends its request in time, and the window with it", async (t) => {
  const clock = stopClock(t);
  for (const [name, values] of [
    ["piece", { document: 0, at: 0, length: 3 }],
    ["timeStamp", { digest: "", request: "" }],
    ["tell", { document: 0, appended: "" }],
  ]) {
    start(ALLOWED);
    const channel = rawChannel(await browser.page(SITE));
    await until(() => channel.heard.length > 0);
    channel.send({ type: "request", id: 1, operation: "signPdfs", values: { documents: '[{"size": 3}]' }, timeout: 600_000 });
    const window = await documentsWindow();
    const asked = window.call(name, values);
    await until(() => channel.heard.some(({ type }) => type === "query"));
    clock.tick(PAGE_ANSWER_MS);
    const { error } = await asked;
    assert.equal(error.code, "TIMEOUT", name);
    void window.call("fail", error);
    await until(() => channel.heard.some(({ type }) => type === "error"));
    assert.equal(channel.heard.at(-1).error.code, "TIMEOUT", name);
    await until(() => browser.windows.open.size === 0);
    channel.close();
    browser.close();
  }
});

test("Signatures on documents stand in the journal, each with its digest, and are none that nobody saw", async () => {
  await signed(await asked());
  const { lines } = await browser.journal.read();
  const [{ operation, digest, outcome, subject, origin }] = lines.map((line) => JSON.parse(line));
  assert.deepEqual({ operation, digest, outcome, subject, origin }, {
    operation: "signPdfs", digest: "07".repeat(32), outcome: "signed", subject: RECORD.SelCertSubject, origin: SITE,
  });
  assert.equal(browser.badge, 0);
});

test("What is no request to sign documents is refused before a window opens", async () => {
  start(ALLOWED);
  const page = await browser.page();
  const one = new Uint8Array([1]);
  const big = { size: MAX_PDF_BYTES + 1 };
  for (const [documents, options, code] of [
    [[], {}, "INVALID_ARGUMENT"],
    [[{ document: new Uint8Array() }], {}, "INVALID_ARGUMENT"],
    [[{ document: "text" }], {}, "INVALID_ARGUMENT"],
    [[{ document: one, name: 5 }], {}, "INVALID_ARGUMENT"],
    [[{ document: one, reason: "x".repeat(501) }], {}, "INVALID_ARGUMENT"],
    [[{ document: one, visible: { x: 1, y: 1, width: 1, height: 50 } }], {}, "INVALID_ARGUMENT"],
    [[{ document: one, visible: { x: 1, y: 1, width: 50, height: "50" } }], {}, "INVALID_ARGUMENT"],
    [[{ document: one }], { chain: [new Uint8Array(20_000)] }, "INVALID_ARGUMENT"],
    [Array(MAX_DOCUMENTS + 1).fill({ document: one }), {}, "TOO_LARGE"],
    [[{ document: new Blob([new Uint8Array(big.size)]) }], {}, "TOO_LARGE"],
  ]) {
    await assert.rejects(page.signPdfs(documents, options), { code }, JSON.stringify([documents.length, code]));
  }
  assert.equal(browser.windows.open.size, 0);
});

test("What a page answers unasked, twice or too long does not reach the extension", async () => {
  start(ALLOWED);
  const arrived = [];
  const connect = browser.service.connect.bind(browser.service);
  browser.service.connect = (port) => {
    port.onMessage.addListener(({ type, number, text }) => type === "reply" && arrived.push([number, text?.length ?? null]));
    connect(port);
  };
  const channel = rawChannel(await browser.page(SITE));
  await until(() => channel.heard.length > 0);
  const reply = (number, text) => channel.send({ type: "reply", id: 1, number, text });
  channel.send({ type: "request", id: 1, operation: "signPdfs", values: { documents: '[{"size": 3}]' }, timeout: 60_000 });
  const window = await documentsWindow();
  reply(1, "unasked");
  await settle();
  const [first, second] = [window.call("piece", { document: 0, at: 0, length: 3 }), window.call("piece", { document: 0, at: 0, length: 3 })];
  await until(() => channel.heard.filter(({ type }) => type === "query").length === 2);
  reply(1, "AAAA");
  reply(1, "BBBB");
  reply(2, "x".repeat(5 * 1024 * 1024));
  assert.equal(await first, "AAAA");
  assert.equal((await second).error.code, "ABORTED");
  assert.deepEqual(arrived, [[1, 4], [2, null]]);
  channel.close();
});
