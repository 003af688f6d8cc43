// A page's request on its whole way, library, bridge and background, with a signing program that answers as a test says.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  ALLOWED, browser, DIGEST, FakeProgram, portPair, rawChannel, RECORD, settle, SITE, start, visit, willing,
} from "./fakes.mjs";

const actions = () => browser.program.requests.map(({ action }) => action);

/** The user of an allowed site, with a program that fails in this way. */
async function siteWithFailure(text, options) {
  start({ ...ALLOWED, program: new FakeProgram(() => ({ ok: false, text })), ...options });
  return browser.page();
}

// ---- requests and replies

test("Every operation reaches the host with the values that it wants", async () => {
  const page = await visit(ALLOWED);
  assert.deepEqual(await page.selectCertificate(), RECORD);
  await page.signGstReturn("a text", { hashAlgorithm: "SHA-512" });
  await page.signItReturn("aGFzaA==", "ABCDE1234F");
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await page.signAuthToken("a token", { hashAlgorithm: "SHA384" });
  assert.deepEqual(browser.program.requests.map(({ nonce, ...request }) => request), [
    { action: "GetSelCertFromToken" },
    { action: "GSTReturnSign", hash: "a text", hashAlgorithm: "SHA512" },
    { action: "ITReturnSign", hash: "aGFzaA==", PAN: "ABCDE1234F", hashAlgorithm: "SHA256" },
    { action: "PdfSignFromToken", hash: DIGEST, certThumbPrint: RECORD.CertThumbPrint, hashAlgorithm: "SHA256" },
    { action: "SignAuthToken", authToken: "a token", hashAlgorithm: "SHA384" },
  ]);
  assert.equal(new Set(browser.program.requests.map(({ nonce }) => nonce)).size, 5);
});

test("The host is started once, by the first request", async () => {
  const page = await visit(ALLOWED);
  assert.equal(browser.program.starts, 0);
  for (let i = 0; i < 3; i++) await page.signAuthToken(`token ${i}`);
  assert.equal(browser.program.starts, 1);
});

test("A reply with another nonce is BAD_REPLY, and ends the host", async () => {
  start(ALLOWED);
  browser.program.answer = () => browser.program.reply("another", { text: "QUJD" });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" });
  assert.equal(browser.host.run, undefined);
});

test("A reply without the shape of one is BAD_REPLY", async () => {
  for (const reply of [{}, { status_cd: "1", result: "QUJD" }, { status_cd: 1, result: 5 }, [], "text"]) {
    start(ALLOWED);
    browser.program.answer = ({ nonce }) => browser.program.send(typeof reply === "string" ? reply : { ...reply, nonce });
    const page = await browser.page();
    await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" }, JSON.stringify(reply));
    browser.close();
  }
});

test("An answer that is no signature, or no certificate record, is BAD_REPLY", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => ({ text: "no Base64!" })) });
  await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" });
  await assert.rejects(page.selectCertificate(), { code: "BAD_REPLY" });
});

// ---- the host's failures

test("A failure reaches the page as its code, with the host's text as detail", async () => {
  const page = await siteWithFailure("User Canceled without Selecting Certificate.");
  await assert.rejects(page.signAuthToken("token"), {
    code: "USER_CANCELLED",
    message: page.ERRORS.USER_CANCELLED,
    detail: "User Canceled without Selecting Certificate.",
  });
});

test("A token's error carries its PKCS#11 name", async () => {
  const page = await siteWithFailure("Error  in TokenSignData(): [CKR_ERROR in C_Sign] ErrCode = 0x00000030.");
  await assert.rejects(page.signAuthToken("token"), { code: "TOKEN_ERROR", ckr: "CKR_DEVICE_ERROR" });
});

test("A failure without a reason is the login before the token has signed, and the token afterwards", async () => {
  const answers = [{ ok: false, text: "" }, { text: "QUJD" }, { ok: false, text: "" }, { text: "QUJD" }];
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => answers.shift()) });
  await assert.rejects(page.signAuthToken("wrong PIN"), { code: "LOGIN_FAILED" });
  await page.signAuthToken("right PIN");
  assert.equal(browser.program.starts, 2);
  await assert.rejects(page.signAuthToken("token pulled"), { code: "TOKEN_ERROR" });
  await page.signAuthToken("started anew");
  assert.equal(browser.program.starts, 3);
});

// ---- a program that is missing or dies

for (const [text, code] of [
  ["Specified native messaging host not found.", "HOST_MISSING"],
  ["No such native application quillmark.host", "HOST_MISSING"],
  ["Access to the specified native messaging host is forbidden.", "HOST_FORBIDDEN"],
  ["Native host has exited.", "HOST_EXITED"],
  [undefined, "HOST_EXITED"],
]) {
  test(`A port that the browser closes with ${JSON.stringify(text)} is ${code}`, async () => {
    const page = await visit({ ...ALLOWED, program: new FakeProgram(() => browser.program.exit(text)) });
    await assert.rejects(page.signAuthToken("token"), { code, detail: text });
  });
}

test("A program that died is started anew by the next request", async () => {
  let died = false;
  const answer = (request) => (died ? willing(request) : ((died = true), browser.program.exit("Native host has exited.")));
  const page = await visit({ ...ALLOWED, program: new FakeProgram(answer) });
  await assert.rejects(page.signAuthToken("token"), { code: "HOST_EXITED" });
  await page.signAuthToken("token");
  assert.equal(browser.program.starts, 2);
});

// ---- certificates and PDF digests

test("signPdfHash lets the user choose first when the host has just been started", async () => {
  const page = await visit(ALLOWED);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "PdfSignFromToken"]);
});

test("signPdfHash is CERTIFICATE_NOT_FOUND when the user chooses another certificate", async () => {
  const page = await visit(ALLOWED);
  await assert.rejects(page.signPdfHash(DIGEST, "B".repeat(40)), { code: "CERTIFICATE_NOT_FOUND" });
  assert.deepEqual(actions(), ["GetSelCertFromToken"]);
});

test("A certificate that the user has not chosen for this site does not sign, whatever was chosen before", async () => {
  start(ALLOWED);
  const other = "B".repeat(40);
  const page = await browser.page();
  await page.selectCertificate();
  await page.signAuthToken("token");
  for (let i = 0; i < 2; i++) await assert.rejects(page.signPdfHash(DIGEST, other), { code: "CERTIFICATE_NOT_FOUND" });
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions().filter((action) => action === "PdfSignFromToken").length, 1);
});

test("A choice in a window is none in a private window of the same site", async () => {
  start(ALLOWED);
  await (await browser.page()).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await (await browser.page(SITE, { incognito: true })).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "GetSelCertFromToken", "PdfSignFromToken"]);
});

test("A choice made for one site does not let another site sign without one", async () => {
  const other = "https://other.example";
  start({ user: { allowedOrigins: [SITE, other] } });
  await (await browser.page(SITE)).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await (await browser.page(other)).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "GetSelCertFromToken", "PdfSignFromToken"]);
});

// ---- what a page may send

test("A page that goes around the library meets the same checks in the extension", async () => {
  start(ALLOWED);
  const [page, background] = portPair("page", { origin: SITE, frameId: 0, tab: { id: 1 } });
  const heard = [];
  page.onMessage.addListener(({ id, error }) => heard.push([id, error?.code]));
  browser.service.connect(background);
  const send = (id, operation, values, timeout = 1000) => page.postMessage({ type: "request", id, operation, values, timeout });
  send(1, "signXml", {});
  send(2, "signAuthToken", { authToken: "a", hashAlgorithm: "SHA1" });
  send(3, "signPdfHash", { hash: Buffer.alloc(32).toString("base64"), certThumbPrint: RECORD.CertThumbPrint });
  send(4, "signGstReturn", { text: "a".repeat(1024 * 1024) });
  send(5, "signGstReturn", undefined);
  send(6, "signGstReturn", { text: "a" }, Infinity);
  send(7, ["signPdfHash"], { hash: DIGEST, certThumbPrint: RECORD.CertThumbPrint });
  send(8, "signPdfHash", { hash: [DIGEST], certThumbPrint: RECORD.CertThumbPrint });
  send(9, "signAuthToken", { authToken: "a", hashAlgorithm: ["SHA-256"] });
  send(10, "signAuthToken", { authToken: "a" }, "1000");
  send("11", "signAuthToken", { authToken: "a" });
  await settle();
  assert.deepEqual(heard, [
    [1, "UNKNOWN_ACTION"], [2, "UNSUPPORTED_HASH"], [3, "DIGEST_UNSUITABLE"], [4, "TOO_LARGE"],
    [5, "INVALID_ARGUMENT"], [6, "INVALID_ARGUMENT"],
    [7, "UNKNOWN_ACTION"], [8, "INVALID_ARGUMENT"], [9, "UNSUPPORTED_HASH"], [10, "INVALID_ARGUMENT"], ["11", "INVALID_ARGUMENT"],
  ]);
  assert.equal(browser.program.starts, 0);
});

test("A document has twenty requests open at most, and one page's flood keeps no other page waiting", async () => {
  start({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const [flooding, other] = [await browser.page(), await browser.page("https://other.example")];
  const codes = Array.from({ length: 6000 }, () => flooding.signPdfHash(DIGEST, RECORD.CertThumbPrint).catch(({ code }) => code));
  assert.equal((await other.status()).permission, "ask");
  const refused = (await Promise.all(codes.slice(20))).filter((code) => code === "TOO_MANY");
  assert.equal(refused.length, 5980);
  await flooding.close();
});

test("Requests that one document has open hold 64 MiB together at most", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const large = "a".repeat(40 * 1024 * 1024);
  page.signAuthToken(large).catch(() => {});
  await assert.rejects(page.signAuthToken(large), { code: "TOO_MANY" });
  await assert.rejects(page.signAuthToken(large + large), { code: "TOO_LARGE" });
  await page.close();
});

test("An id that is open already is refused, and the first request with it ends with its page", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const channel = rawChannel(page);
  for (let i = 0; i < 2; i++) {
    channel.send({ type: "request", id: 1, operation: "selectCertificate", values: {}, timeout: 1000 });
  }
  await settle();
  assert.deepEqual(channel.heard.filter(({ error }) => error).map(({ id, error }) => [id, error.code]), [[1, "INVALID_ARGUMENT"]]);
  assert.equal(browser.program.running, true);
  await page.close();
  channel.close();
  assert.equal(browser.program.running, false);
  await settle();
  assert.deepEqual(browser.service.origins().waiting, []);
});

test("Of what a page posts, only texts and truth values leave it", async () => {
  const page = await visit(ALLOWED);
  const odd = { hash: new Map([[1, 2]]), certThumbPrint: new ArrayBuffer(8), hashAlgorithm: 10n };
  const channel = rawChannel(page);
  channel.send({ type: "request", id: 1, operation: { toString: 1 }, values: odd, timeout: 1000 });
  channel.send({ type: "request", id: 2, operation: "signPdfHash", values: odd, timeout: 1000 });
  await settle();
  channel.close();
  assert.deepEqual(channel.heard.filter(({ error }) => error).map(({ error }) => error.code), ["UNKNOWN_ACTION", "UNSUPPORTED_HASH"]);
});

test("A page that is kept for the way back is gone as far as its requests are concerned", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram((request) => (request.authToken === "1" ? undefined : willing(request))) });
  const request = assert.rejects(page.signAuthToken("1"), { code: "ABORTED" });
  await settle();
  page.window.press("pagehide");
  await request;
  await settle();
  assert.equal(browser.program.running, false);
});

// ---- the queue

test("Requests of several pages are served one at a time, and each is told how many come first", async () => {
  let open = 0;
  const answer = async (request) => {
    assert.equal(++open, 1, "two requests at once");
    await settle(5);
    open--;
    return { text: btoa(request.authToken) };
  };
  start({ ...ALLOWED, program: new FakeProgram(answer) });
  const pages = [await browser.page(), await browser.page(), await browser.page()];
  const waited = [];
  const results = await Promise.all(pages.map((page, i) => page.signAuthToken(`token ${i}`, {
    onProgress: ({ state, ahead }) => i === 2 && waited.push(ahead ?? state),
  })));
  assert.deepEqual(results, pages.map((_, i) => btoa(`token ${i}`)));
  assert.equal(waited[0], 2);
});

// ---- status

test("status tells a page that is not allowed neither what others do nor whether the host runs", async () => {
  start({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  (await browser.page()).selectCertificate().catch(() => {});
  await settle();
  const status = await (await browser.page("https://new.example")).status();
  assert.deepEqual(status, { extension: "9.9.9", permission: "ask", host: null, waiting: 0 });
  assert.equal((await (await browser.page()).status()).waiting, 1);
});

test("status tells the permission without asking, and without starting the host", async () => {
  start({ ...ALLOWED, managed: { deniedOrigins: ["https://bad.example"] } });
  const permissionOf = async (origin) => (await (await browser.page(origin)).status()).permission;
  assert.equal(await permissionOf(SITE), "allowed");
  assert.equal(await permissionOf("https://new.example"), "ask");
  assert.equal(await permissionOf("https://bad.example"), "denied");
  assert.equal(browser.program.starts, 0);
  assert.deepEqual(browser.questions, []);
});

test("status with checkHost starts the host for an allowed site only", async () => {
  start(ALLOWED);
  await assert.rejects((await browser.page("https://new.example")).status({ checkHost: true }), { code: "ORIGIN_DENIED" });
  assert.equal(browser.program.starts, 0);
  const status = await (await browser.page()).status({ checkHost: true });
  assert.deepEqual(status, { extension: "9.9.9", permission: "allowed", host: "running", waiting: 0 });
  assert.deepEqual(actions(), [undefined], "a sign of life has no action");
});
