// Who may ask, and when the user is asked.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  ALLOWED, browser, DIGEST, FakeProgram, portPair, rawChannel, RECORD, settle, SITE, start, stopClock, visit, willing,
  withdrawable,
} from "./fakes.mjs";

test("The first request of an unknown site asks the user, and shows the browser's origin and what is asked", async () => {
  const page = await visit({ answers: ["once"] });
  await page.signGstReturn("₹ 1,000");
  assert.deepEqual(browser.questions, [
    {
      kind: "question", origin: SITE, isFramed: false, isPrivate: false, surroundings: null, firstAllowed: null,
      operation: "signGstReturn", characters: 7, text: "₹ 1,000",
    },
  ]);
  assert.equal(browser.windows.open.size, 0, "the consent window is closed");
});

test("Once is for one request; always is remembered", async () => {
  const page = await visit({ answers: ["once", "always"] });
  for (let i = 0; i < 4; i++) await page.signAuthToken("token");
  assert.deepEqual(browser.questions.map(({ kind }) => kind), ["question", "question", "statement", "statement"]);
  assert.deepEqual(browser.user.values.allowedOrigins, [SITE]);
});

test("Until the page closes is for this document, and for no other of the site", async () => {
  const page = await visit({ answers: ["page", "deny"] });
  for (let i = 0; i < 3; i++) await page.signAuthToken("token");
  assert.deepEqual(browser.questions.map(({ kind }) => kind), ["question", "statement", "statement"]);
  assert.equal(browser.user.values.allowedOrigins, undefined);
  await assert.rejects((await browser.page()).signAuthToken("token"), { code: "ORIGIN_DENIED", reason: undefined });
  assert.equal((await page.status()).permission, "allowed");
});

test("A private window leaves no origin behind, and its always lasts until the page closes", async () => {
  const page = await visit({ answers: ["always"] }, SITE, { incognito: true });
  await page.signAuthToken("token");
  await page.signAuthToken("token");
  assert.deepEqual(browser.user.values, {});
});

test("A question says since when the site has been allowed", async () => {
  const page = await visit({ answers: ["once", "once"] });
  await page.signAuthToken("token");
  await page.signAuthToken("token");
  const [first, second] = browser.questions;
  assert.equal(first.firstAllowed, null);
  assert.match(second.firstAllowed, /^20\d\d-/);
});

test("A denied page is not asked about again until it is loaded anew, and its origin has waited", async (t) => {
  const page = await visit({ answers: ["deny", "once"] });
  const clock = stopClock(t);
  for (let i = 0; i < 2; i++) await assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  assert.equal(browser.questions.length, 1);
  assert.equal((await page.status()).permission, "denied");
  await page.close();
  await assert.rejects((await browser.page()).signAuthToken("token"), { code: "NOT_NOW" });
  clock.tick(10_000);
  await (await browser.page()).signAuthToken("token");
  assert.equal(browser.questions.length, 2);
  assert.equal(browser.program.starts, 1);
});

test("Each refusal makes the origin wait longer, an allowance begins anew", async (t) => {
  start({ answers: ["deny", "deny", "deny", "deny", "deny", "once", "deny"] });
  const clock = stopClock(t);
  const refusedFor = async (milliseconds) => {
    await assert.rejects((await browser.page()).signAuthToken("token"), { code: "ORIGIN_DENIED" });
    clock.tick(milliseconds - 1);
    await assert.rejects((await browser.page()).signAuthToken("token"), { code: "NOT_NOW" });
    clock.tick(1);
  };
  for (const seconds of [10, 60, 600, 3600, 3600]) await refusedFor(seconds * 1000);
  await (await browser.page()).signAuthToken("token");
  await refusedFor(10_000);
  assert.equal(browser.questions.length, 7);
});

test("A time that runs out, and a question that is withdrawn, make the origin wait too", async (t) => {
  const clock = stopClock(t);
  for (const code of ["TIMEOUT", "ABORTED"]) {
    const page = await visit();
    const controller = new AbortController();
    const request = assert.rejects(page.signAuthToken("token", { timeout: 1_000, signal: controller.signal }), { code });
    await settle();
    assert.equal(browser.questions.length, 1);
    if (code === "ABORTED") controller.abort();
    else clock.tick(1_000);
    await request;
    await settle();
    await assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW" });
    browser.close();
  }
});

test("No question without a click or key in that very document within half a minute", async (t) => {
  const page = await visit({ answers: ["once"] }, SITE, { clicked: false });
  const clock = stopClock(t);
  const fails = (words) => assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW", detail: words });
  await fails(/30 seconds/);
  page.window.press("click", { isTrusted: false });
  await fails(/30 seconds/);
  for (const key of ["Escape", "Shift"]) page.window.press("keydown", { key });
  await fails(/30 seconds/);
  assert.equal(browser.questions.length, 0);
  page.window.press("keydown", { key: "a" });
  await page.signAuthToken("token");
  clock.tick(31_000);
});

test("A gesture counts for half a minute, and so does the answer to a question", async (t) => {
  start({ answers: ["once", "once"] });
  stopClock(t);
  const document = { origin: SITE, tabId: 1, engagedAt: -Infinity };
  await browser.rules.require(document, Date.now() - 30_000);
  await assert.rejects(browser.rules.require(document, Date.now() - 30_001), { code: "NOT_NOW" });
  await browser.rules.require({ ...document, engagedAt: Date.now() - 30_000 }, -Infinity);
  await assert.rejects(browser.rules.require({ ...document, engagedAt: Date.now() - 30_001 }, -Infinity), { code: "NOT_NOW" });
});

test("No question about a page that is out of sight, also when its turn comes later", async () => {
  const page = await visit({ answers: ["once"] });
  browser.isInSight = false;
  await assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW", detail: /in sight/ });
  browser.isInSight = true;
  browser.windows.get = async () => ({ state: "minimized" });
  await assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW", detail: /in sight/ });
  browser.tabs.get = () => Promise.reject(new Error("no such tab"));
  await assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW", detail: /in sight/ });
  assert.equal(browser.questions.length, 0);
});

test("The whole browser asks ten questions a minute at most, whatever the origins", async (t) => {
  start({ answers: Array(12).fill("once") });
  const clock = stopClock(t);
  const ask = async (number) => (await browser.page(`https://site${number}.example`)).signAuthToken("token");
  for (let number = 0; number < 10; number++) await ask(number);
  await assert.rejects(ask(10), { code: "NOT_NOW", detail: /too many questions/ });
  clock.tick(60_000);
  await ask(11);
  assert.equal(browser.questions.length, 11);
});

test("What was refused is known also after the browser has stopped the extension", async (t) => {
  start({ answers: ["deny"] });
  await assert.rejects((await browser.page()).signAuthToken("token"), { code: "ORIGIN_DENIED" });
  const { values } = browser.session;
  browser.close();
  start({ answers: ["once"] });
  Object.assign(browser.session.values, values);
  await assert.rejects((await browser.page()).signAuthToken("token"), { code: "NOT_NOW" });
});

test("Closing the consent window denies", async () => {
  const page = await visit();
  const request = assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  await settle();
  await browser.windows.remove(1);
  await request;
});

test("Consent questions come one after another, and one answer settles the site's other requests", async () => {
  start({ answers: ["always", "once"] });
  const [first, second] = [await browser.page(SITE), await browser.page("https://second.example")];
  const progress = [];
  await Promise.all([
    first.signAuthToken("1"),
    first.signAuthToken("2"),
    second.signAuthToken("3", { onProgress: (state) => progress.push(state) }),
  ]);
  const asked = browser.questions.filter(({ kind }) => kind === "question");
  assert.deepEqual(asked.map(({ origin }) => origin), [SITE, "https://second.example"]);
  assert.deepEqual(progress[0], { state: "waiting" }, "not how many others there are");
});

test("A site without https is denied, except on this computer", async () => {
  start({ answers: ["once", "once"] });
  for (const origin of ["http://site.example", "null", "file://", "ftp://site.example", null]) {
    const page = await browser.page(origin);
    await assert.rejects(page.signAuthToken("token"), { code: "ORIGIN_DENIED" }, origin);
  }
  assert.equal(browser.questions.length, 0);
  for (const origin of ["http://localhost:8080", "http://127.0.0.1"]) await (await browser.page(origin)).signAuthToken("token");
});

test("A frame counts by its own origin, and the page around it is named", async () => {
  start({ ...ALLOWED, answers: ["deny"] });
  const frame = await browser.page("https://ads.example", { frameId: 7 });
  await assert.rejects(frame.signAuthToken("token"), { code: "ORIGIN_DENIED" });
  assert.equal(browser.questions[0].origin, "https://ads.example");
  assert.equal(browser.questions[0].isFramed, true);
  assert.equal(browser.questions[0].surroundings, "https://around.example");
});

test("A message of another frame does not reach the extension as this page's", async () => {
  const page = await visit(ALLOWED);
  const channel = rawChannel(page, { another: "window" });
  channel.send({ type: "request", id: 1, operation: "selectCertificate", values: {}, timeout: 1000 });
  await settle();
  channel.close();
  assert.deepEqual(channel.heard, []);
  assert.equal(browser.program.starts, 0);
});

test("What a page says of its origin, nonce or action counts for nothing", async () => {
  const page = await visit({ ...ALLOWED, answers: ["deny"] }, "https://evil.example");
  const channel = rawChannel(page);
  channel.send({
    type: "request", id: 1, operation: "selectCertificate", timeout: 1000, origin: SITE, sender: { origin: SITE },
    values: { action: "SignAuthToken", nonce: "mine", origin: SITE },
  });
  await settle();
  channel.close();
  assert.equal(browser.questions[0].origin, "https://evil.example");
  assert.equal(channel.heard.at(-1).error.code, "ORIGIN_DENIED");
});

test("Taking a permission back ends what waits and what runs, and the host that had the PIN for the site", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram((request) => (request.authToken === "1" ? undefined : willing(request))) });
  await page.signAuthToken("0");
  const codes = ["1", "2", "3"].map((text) => page.signAuthToken(text).catch(({ code }) => code));
  await settle();
  assert.equal(browser.program.requests.length, 2);
  await browser.service.revoke(SITE);
  assert.deepEqual(await Promise.all(codes), ["ORIGIN_DENIED", "ORIGIN_DENIED", "ORIGIN_DENIED"]);
  assert.equal(browser.program.requests.length, 2);
  assert.equal(browser.host.run, undefined);
});

test("A permission that is taken back while nothing runs ends the host that has the PIN for the site", async () => {
  const page = await visit(ALLOWED);
  await page.signAuthToken("token");
  await browser.service.revoke("https://other.example");
  assert.notEqual(browser.host.run, undefined);
  await browser.service.revoke(SITE);
  assert.equal(browser.host.run, undefined);
});

test("A question that waits for its turn longer than a click counts is not asked", async (t) => {
  start();
  const [first, second] = [await browser.page(), await browser.page("https://second.example")];
  const clock = stopClock(t);
  const withdraw = await withdrawable(first);
  const waiting = assert.rejects(second.signAuthToken("2"), { code: "NOT_NOW" });
  await settle();
  clock.tick(31_000);
  await Promise.all([withdraw(), waiting]);
  assert.equal(browser.questions.length, 1);
});

test("Two permissions that are taken back at once are both taken back, and one that is given meanwhile stays", async () => {
  start({ user: { allowedOrigins: ["https://a.example", "https://b.example"] } });
  const { permissions } = browser;
  await Promise.all([permissions.revoke("https://a.example"), permissions.allow(SITE), permissions.revoke("https://b.example")]);
  assert.deepEqual(await permissions.usersOrigins(), [SITE]);
});

test("A page that withdraws its question again and again waits, but not longer each time", async (t) => {
  start();
  const clock = stopClock(t);
  const page = await browser.page();
  for (let i = 0; i < 4; i++) {
    page.click();
    const withdraw = await withdrawable(page);
    await withdraw();
    await settle();
    await assert.rejects(page.signAuthToken("token"), { code: "NOT_NOW" });
    clock.tick(10_000);
  }
  assert.equal(browser.questions.length, 4);
});

test("A window that is closed while it opens denies, and keeps nobody waiting", async () => {
  start({ answers: ["once"] });
  const create = browser.windows.create;
  browser.windows.create = async (options) => {
    const { id } = await create(options);
    browser.windows.open.delete(id); // gone before anybody has its number
    browser.answers.length = 0;
    return { id };
  };
  await assert.rejects((await browser.page()).selectCertificate(), { code: "ORIGIN_DENIED" });
  browser.windows.create = create;
  browser.answers.push("once");
  assert.deepEqual(await (await browser.page("https://second.example")).selectCertificate(), RECORD);
});

test("A denial by the administrator ends what a site has asked before it, and says who has denied", async () => {
  start({ answers: ["once"], program: new FakeProgram(() => undefined) });
  const request = assert.rejects((await browser.page()).signAuthToken("token"), { code: "ORIGIN_DENIED", reason: "policy" });
  await settle();
  assert.equal(browser.program.requests.length, 1);
  browser.managed.values.deniedOrigins = [SITE];
  await browser.service.recheck();
  await request;
});

test("The text that an allowed site has signed is on the screen before the host is asked, and Stop signs nothing", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const create = browser.windows.create;
  browser.windows.create = () => new Promise(() => {});
  const invisible = page.signAuthToken("never seen", { timeout: 100 });
  await assert.rejects(invisible, { code: "TIMEOUT" });
  assert.equal(browser.program.requests.length, 0);

  browser.windows.create = create;
  const request = assert.rejects(page.signAuthToken("seen"), { code: "USER_CANCELLED" });
  await settle();
  assert.equal(browser.questions.at(-1).text, "seen");
  assert.equal(browser.program.requests.length, 1);
  const [url] = browser.windows.open.values();
  const [consentPage, background] = portPair("consent", {});
  browser.consent.connect(background);
  consentPage.postMessage({ type: "answer", id: url.split("#")[1], answer: "deny" });
  await request;
  assert.equal(browser.program.running, false);
});

test("A whole text is shown, however long, in pieces that a browser takes", async () => {
  start({ answers: ["deny"] });
  const text = `${"x".repeat(9_000_000)}end`;
  await assert.rejects((await browser.page()).signAuthToken(text), { code: "ORIGIN_DENIED" });
  assert.equal(browser.questions[0].text, text);
});

test("PDF and income-tax questions show the digest, and whose it is", async () => {
  const page = await visit({ answers: ["once", "once"] });
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await page.signItReturn("aGFzaA==", "ABCDE1234F");
  assert.deepEqual(browser.questions.map(({ facts }) => facts), [
    [["Digest (SHA-256)", "07".repeat(32)], ["Certificate (SHA-1 thumbprint)", RECORD.CertThumbPrint]],
    [["PAN", "ABCDE1234F"], ["Digest, as the site gave it", "aGFzaA=="]],
  ]);
});
