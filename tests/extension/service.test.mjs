// A page's request on its whole way, library, bridge and background, with a signing program that answers as a test says.

import assert from "node:assert/strict";
import { afterEach, test } from "node:test";

import { FakeBrowser, FakeProgram, portPair, RECORD, settle, stopClock, willing } from "./fakes.mjs";

const SITE = "https://site.example";
const ALLOWED = { user: { allowedOrigins: [SITE] } };
const DIGEST = Buffer.alloc(32, 7).toString("base64");

let browser;
afterEach(() => browser.close());

const actions = () => browser.program.requests.map(({ action }) => action);

/** The user of an allowed site, with a program that fails in this way. */
async function siteWithFailure(text, options) {
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => ({ ok: false, text })), ...options });
  return browser.page();
}

// ---- requests and replies

test("Every operation reaches the program with the values that it wants", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
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

test("The program is started once, by the first request", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  assert.equal(browser.program.starts, 0);
  for (let i = 0; i < 3; i++) await page.signAuthToken(`token ${i}`);
  assert.equal(browser.program.starts, 1);
});

test("A reply with another nonce is BAD_REPLY, and ends the program", async () => {
  browser = new FakeBrowser(ALLOWED);
  browser.program.answer = () => browser.program.reply("another", { text: "QUJD" });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" });
  assert.equal(browser.host.run, undefined);
});

test("A reply without the shape of one is BAD_REPLY", async () => {
  for (const reply of [{}, { status_cd: "1", result: "QUJD" }, { status_cd: 1, result: 5 }, [], "text"]) {
    browser = new FakeBrowser(ALLOWED);
    browser.program.answer = ({ nonce }) => browser.program.send(typeof reply === "string" ? reply : { ...reply, nonce });
    const page = await browser.page();
    await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" }, JSON.stringify(reply));
    browser.close();
  }
});

test("An answer that is no signature, or no certificate record, is BAD_REPLY", async () => {
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => ({ text: "no Base64!" })) });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token"), { code: "BAD_REPLY" });
  await assert.rejects(page.selectCertificate(), { code: "BAD_REPLY" });
});

// ---- the program's failures

test("A failure reaches the page as its code, with the program's text as detail", async () => {
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
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => answers.shift()) });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("wrong PIN"), { code: "LOGIN_FAILED" });
  await page.signAuthToken("right PIN");
  assert.equal(browser.program.starts, 1);
  await assert.rejects(page.signAuthToken("token pulled"), { code: "TOKEN_ERROR" });
  await page.signAuthToken("started anew");
  assert.equal(browser.program.starts, 2);
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
    browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => browser.program.exit(text)) });
    const page = await browser.page();
    await assert.rejects(page.signAuthToken("token"), { code, detail: text });
  });
}

test("A program that died is started anew by the next request", async () => {
  let died = false;
  const answer = (request) => (died ? willing(request) : ((died = true), browser.program.exit("Native host has exited.")));
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(answer) });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token"), { code: "HOST_EXITED" });
  await page.signAuthToken("token");
  assert.equal(browser.program.starts, 2);
});

// ---- certificates and PDF digests

test("signPdfHash lets the user choose first when the program has just been started", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "PdfSignFromToken"]);
});

test("signPdfHash is CERTIFICATE_NOT_FOUND when the user chooses another certificate", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  await assert.rejects(page.signPdfHash(DIGEST, "B".repeat(40)), { code: "CERTIFICATE_NOT_FOUND" });
  assert.deepEqual(actions(), ["GetSelCertFromToken"]);
});

test("A choice made for one site does not let another site sign without one", async () => {
  const other = "https://other.example";
  browser = new FakeBrowser({ user: { allowedOrigins: [SITE, other] } });
  await (await browser.page(SITE)).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await (await browser.page(other)).signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.deepEqual(actions(), ["GetSelCertFromToken", "PdfSignFromToken", "GetSelCertFromToken", "PdfSignFromToken"]);
});

// ---- who may ask

test("The first request of an unknown site asks the user, and shows the browser's origin and what is asked", async () => {
  browser = new FakeBrowser({ answers: ["once"] });
  const page = await browser.page();
  await page.signGstReturn("₹ 1,000");
  assert.deepEqual(browser.questions, [
    { origin: SITE, framed: false, incognito: false, operation: "signGstReturn", preview: { text: "₹ 1,000", characters: 7 } },
  ]);
  assert.equal(browser.windows.open.size, 0, "the consent window is closed");
});

test("Once is for one request; always is remembered", async () => {
  browser = new FakeBrowser({ answers: ["once", "always"] });
  const page = await browser.page();
  for (let i = 0; i < 4; i++) await page.signAuthToken("token");
  assert.equal(browser.questions.length, 2);
  assert.deepEqual(browser.user.values.allowedOrigins, [SITE]);
});

test("A denied page is not asked about again until it is loaded anew", async () => {
  browser = new FakeBrowser({ answers: ["deny", "once"] });
  const page = await browser.page();
  for (let i = 0; i < 2; i++) await assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  assert.equal(browser.questions.length, 1);
  assert.equal((await page.status()).permission, "denied");
  await page.close();
  await (await browser.page()).signAuthToken("token");
  assert.equal(browser.questions.length, 2);
  assert.equal(browser.program.starts, 1);
});

test("Closing the consent window denies", async () => {
  browser = new FakeBrowser();
  const page = await browser.page();
  const request = assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  await settle();
  await browser.windows.remove(1);
  await request;
});

test("Consent questions come one after another, and one answer settles the site's other requests", async () => {
  browser = new FakeBrowser({ answers: ["always", "once"] });
  const [first, second] = [await browser.page(SITE), await browser.page("https://second.example")];
  const progress = [];
  await Promise.all([
    first.signAuthToken("1"),
    first.signAuthToken("2"),
    second.signAuthToken("3", { onProgress: (state) => progress.push(state) }),
  ]);
  assert.deepEqual(browser.questions.map(({ origin }) => origin), [SITE, "https://second.example"]);
  assert.deepEqual(progress[0], { state: "waiting", ahead: 2 });
});

test("A site without https is denied, except on this computer", async () => {
  browser = new FakeBrowser({ answers: ["once", "once"] });
  for (const origin of ["http://site.example", "null", "file://", "ftp://site.example", null]) {
    const page = await browser.page(origin);
    await assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" }, origin);
  }
  assert.equal(browser.questions.length, 0);
  for (const origin of ["http://localhost:8080", "http://127.0.0.1"]) await (await browser.page(origin)).signAuthToken("token");
});

test("A frame counts by its own origin", async () => {
  browser = new FakeBrowser({ ...ALLOWED, answers: ["deny"] });
  const frame = await browser.page("https://ads.example", { frameId: 7 });
  await assert.rejects(frame.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  assert.equal(browser.questions[0].origin, "https://ads.example");
  assert.equal(browser.questions[0].framed, true);
});

test("A message of another frame does not reach the extension as this page's", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  const { port1, port2 } = new MessageChannel();
  const heard = [];
  port1.onmessage = ({ data }) => heard.push(data);
  page.window.deliver({ another: "window" }, { quillmark: "connect" }, [port2]);
  port1.postMessage({ type: "request", id: 1, operation: "selectCertificate", values: {}, timeout: 1000 });
  await settle();
  port1.close();
  assert.deepEqual(heard, []);
  assert.equal(browser.program.starts, 0);
});

test("What a page says of its origin, nonce or action counts for nothing", async () => {
  browser = new FakeBrowser({ ...ALLOWED, answers: ["deny"] });
  const page = await browser.page("https://evil.example");
  const { port1, port2 } = new MessageChannel();
  const heard = [];
  port1.onmessage = ({ data }) => heard.push(data);
  page.window.deliver(page.window, { quillmark: "connect" }, [port2]);
  port1.postMessage({
    type: "request", id: 1, operation: "selectCertificate", timeout: 1000, origin: SITE, sender: { origin: SITE },
    values: { action: "SignAuthToken", nonce: "mine", origin: SITE },
  });
  await settle(60);
  port1.close();
  assert.equal(browser.questions[0].origin, "https://evil.example");
  assert.equal(heard.at(-1).error.code, "ORIGIN_DENIED");
});

test("A page that goes around the library meets the same checks in the extension", async () => {
  browser = new FakeBrowser(ALLOWED);
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
  await settle(60);
  assert.deepEqual(heard, [
    [1, "UNKNOWN_ACTION"], [2, "UNSUPPORTED_HASH"], [3, "DIGEST_UNSUITABLE"], [4, "TOO_LARGE"],
    [5, "INVALID_ARGUMENT"], [6, "INVALID_ARGUMENT"],
  ]);
  assert.equal(browser.program.starts, 0);
});

test("A long text is shown in part, with its true length", async () => {
  browser = new FakeBrowser({ answers: ["deny"] });
  await assert.rejects((await browser.page()).signGstReturn("x".repeat(5000)), { code: "ORIGIN_DENIED" });
  assert.deepEqual(browser.questions[0].preview, { text: "x".repeat(4000), characters: 5000 });
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
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(answer) });
  const pages = [await browser.page(), await browser.page(), await browser.page()];
  const waited = [];
  const results = await Promise.all(pages.map((page, i) => page.signAuthToken(`token ${i}`, {
    onProgress: ({ state, ahead }) => i === 2 && waited.push(ahead ?? state),
  })));
  assert.deepEqual(results, pages.map((_, i) => btoa(`token ${i}`)));
  assert.deepEqual(waited, [2, 1, "working"]);
});

// ---- withdrawal, time, and the program's life

test("An abort ends the program and its window, and the next request waits until they are gone", async (t) => {
  let silent = true;
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram((request) => (silent ? undefined : willing(request))) });
  const page = await browser.page();
  const clock = stopClock(t);
  const controller = new AbortController();
  const reason = new Error("the user left the form");
  const request = page.signAuthToken("token", { signal: controller.signal });
  const aborted = assert.rejects(request, { code: "ABORTED", cause: reason });
  await settle();
  controller.abort(reason);
  await aborted;
  await settle();
  assert.equal(browser.program.running, false);

  silent = false;
  const next = page.signAuthToken("token");
  await settle();
  assert.equal(browser.program.starts, 1);
  clock.tick(3_500);
  await next;
  assert.equal(browser.program.starts, 2);
});

test("The time limit ends also a request that waits until the program before it is gone", async (t) => {
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const page = await browser.page();
  const clock = stopClock(t);
  const controller = new AbortController();
  const aborted = assert.rejects(page.signAuthToken("token", { signal: controller.signal }), { code: "ABORTED" });
  await settle();
  controller.abort();
  await aborted;
  let code;
  page.signAuthToken("token", { timeout: 1_000 }).catch((error) => (code = error.code));
  await settle();
  clock.tick(1_000);
  await settle();
  assert.equal(code, "TIMEOUT");
  assert.equal(browser.program.starts, 1);
});

test("A signal that is aborted already sends nothing", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token", { signal: AbortSignal.abort() }), { code: "ABORTED" });
  await settle();
  assert.equal(browser.program.starts, 0);
});

test("An abort while waiting leaves the request that is being served alone", async () => {
  let finish;
  const program = new FakeProgram(() => new Promise((resolve) => (finish = () => resolve({ text: "QUJD" }))));
  browser = new FakeBrowser({ ...ALLOWED, program });
  const page = await browser.page();
  const first = page.signAuthToken("first");
  const controller = new AbortController();
  const second = assert.rejects(page.signAuthToken("second", { signal: controller.signal }), { code: "ABORTED" });
  await settle();
  controller.abort();
  await second;
  finish();
  assert.equal(await first, "QUJD");
  assert.equal(browser.program.starts, 1);
});

test("An abort closes the consent window", async () => {
  browser = new FakeBrowser();
  const page = await browser.page();
  const controller = new AbortController();
  const request = assert.rejects(page.signAuthToken("token", { signal: controller.signal }), { code: "ABORTED" });
  await settle();
  assert.equal(browser.windows.open.size, 1);
  controller.abort();
  await request;
  await settle();
  assert.equal(browser.windows.open.size, 0);
});

test("The time limit ends the program with TIMEOUT", async () => {
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token", { timeout: 50 }), { code: "TIMEOUT" });
  assert.equal(browser.program.running, false);
});

test("The time limit closes the consent window with TIMEOUT", async () => {
  browser = new FakeBrowser();
  const page = await browser.page();
  await assert.rejects(page.signAuthToken("token", { timeout: 50 }), { code: "TIMEOUT" });
  await settle();
  assert.equal(browser.windows.open.size, 0);
});

test("The time limit does not run while other requests come first", async () => {
  const slow = async () => {
    await new Promise((resolve) => setTimeout(resolve, 150));
    return { text: "QUJD" };
  };
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(slow) });
  const page = await browser.page();
  const first = page.signAuthToken("first", { timeout: 5_000 });
  const second = page.signAuthToken("second", { timeout: 250 });
  assert.deepEqual(await Promise.all([first, second]), ["QUJD", "QUJD"]);
});

test("A page that is closed in the middle withdraws its request", async () => {
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const page = await browser.page();
  const request = page.signAuthToken("token");
  request.catch(() => {});
  await settle();
  await page.close();
  assert.equal(browser.program.running, false);
});

test("The program ends with the last page that has used it", async () => {
  browser = new FakeBrowser(ALLOWED);
  const [one, two, idle] = [await browser.page(), await browser.page(), await browser.page()];
  await one.signAuthToken("token");
  await two.signAuthToken("token");
  await idle.status();
  await one.close();
  assert.equal(browser.program.running, true);
  await two.close();
  assert.equal(browser.program.running, false);
});

test("The program ends after ten minutes of quiet, and every request begins them anew", async (t) => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  await page.status();
  const clock = stopClock(t);
  await page.signAuthToken("token");
  clock.tick(599_000);
  await page.signAuthToken("token");
  clock.tick(599_000);
  await settle();
  assert.equal(browser.program.running, true);
  clock.tick(1_000);
  await settle();
  assert.equal(browser.program.running, false);
});

test("An extension that is stopped in the middle rejects what is open, and serves again when it is back", async () => {
  let silent = true;
  browser = new FakeBrowser({ ...ALLOWED, program: new FakeProgram((request) => (silent ? undefined : willing(request))) });
  const page = await browser.page();
  const request = assert.rejects(page.signAuthToken("token"), { code: "EXTENSION_MISSING" });
  await settle();
  page.stopExtension();
  await request;
  silent = false;
  browser.host.close();
  await page.status();
});

test("An extension that was replaced under an open page is EXTENSION_MISSING", async () => {
  browser = new FakeBrowser(ALLOWED);
  const page = await browser.page();
  browser.extensionIsGone = true;
  await assert.rejects(page.signAuthToken("token"), { code: "EXTENSION_MISSING" });
});

// ---- status

test("status tells the permission without asking, and without starting the program", async () => {
  browser = new FakeBrowser({ ...ALLOWED, managed: { deniedOrigins: ["https://bad.example"] } });
  const permissionOf = async (origin) => (await (await browser.page(origin)).status()).permission;
  assert.equal(await permissionOf(SITE), "allowed");
  assert.equal(await permissionOf("https://new.example"), "ask");
  assert.equal(await permissionOf("https://bad.example"), "denied");
  assert.equal(browser.program.starts, 0);
  assert.deepEqual(browser.questions, []);
});

test("status with checkHost starts the program for an allowed site only", async () => {
  browser = new FakeBrowser(ALLOWED);
  await assert.rejects((await browser.page("https://new.example")).status({ checkHost: true }), { code: "ORIGIN_DENIED" });
  assert.equal(browser.program.starts, 0);
  const status = await (await browser.page()).status({ checkHost: true });
  assert.deepEqual(status, { extension: "9.9.9", permission: "allowed", host: "running", waiting: 0 });
  assert.deepEqual(actions(), [undefined], "a sign of life has no action");
});
