// How requests end before their time, and how long the signing program runs.

import assert from "node:assert/strict";
import { test } from "node:test";

import { Panel } from "../../extension/src/panel.js";
import {
  ALLOWED, browser, DIGEST, FakeProgram, RECORD, settle, start, stopClock, until, visit, willing, withdrawable,
} from "./fakes.mjs";

test("An abort ends the host and its window, and the next request waits until they are gone", async (t) => {
  let silent = true;
  const page = await visit({ ...ALLOWED, program: new FakeProgram((request) => (silent ? undefined : willing(request))) });
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

test("The time limit ends also a request that waits until the host before it is gone", async (t) => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const clock = stopClock(t);
  const withdraw = await withdrawable(page);
  await until(() => browser.program.requests.length === 1);
  await withdraw();
  await until(() => !browser.program.running);
  let code;
  page.signAuthToken("token", { timeout: 1_000 }).catch((error) => (code = error.code));
  await until(() => browser.questions.length === 2);
  clock.tick(1_000);
  await until(() => code);
  assert.equal(code, "TIMEOUT");
  assert.equal(browser.program.starts, 1);
});

test("A signal that is aborted already sends nothing", async () => {
  const page = await visit(ALLOWED);
  await assert.rejects(page.signAuthToken("token", { signal: AbortSignal.abort() }), { code: "ABORTED" });
  await settle();
  assert.equal(browser.program.starts, 0);
});

test("An abort while waiting leaves the request that is being served alone", async () => {
  let finish;
  const program = new FakeProgram(() => new Promise((resolve) => (finish = () => resolve({ text: "QUJD" }))));
  const page = await visit({ ...ALLOWED, program });
  const first = page.signAuthToken("first");
  const withdraw = await withdrawable(page);
  await withdraw();
  finish();
  assert.equal(await first, "QUJD");
  assert.equal(browser.program.starts, 1);
});

test("An abort closes the consent window", async () => {
  const page = await visit();
  const withdraw = await withdrawable(page);
  assert.equal(browser.windows.open.size, 1);
  await withdraw();
  await settle();
  assert.equal(browser.windows.open.size, 0);
});

test("The time limit ends the host with TIMEOUT", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  await assert.rejects(page.signAuthToken("token", { timeout: 50 }), { code: "TIMEOUT" });
  assert.equal(browser.program.running, false);
});

test("The time limit closes the consent window with TIMEOUT", async () => {
  const page = await visit();
  await assert.rejects(page.signAuthToken("token", { timeout: 50 }), { code: "TIMEOUT" });
  await settle();
  assert.equal(browser.windows.open.size, 0);
});

test("The time limit does not run while other requests come first", async () => {
  const slow = async () => {
    await new Promise((resolve) => setTimeout(resolve, 600));
    return { text: "QUJD" };
  };
  const page = await visit({ ...ALLOWED, program: new FakeProgram(slow) });
  const first = page.signAuthToken("first", { timeout: 10_000 });
  const second = page.signAuthToken("second", { timeout: 1_100 });
  assert.deepEqual(await Promise.all([first, second]), ["QUJD", "QUJD"]);
});

test("A page that is closed in the middle withdraws its request", async () => {
  const page = await visit({ ...ALLOWED, program: new FakeProgram(() => undefined) });
  const request = page.signAuthToken("token");
  request.catch(() => {});
  await settle();
  await page.close();
  assert.equal(browser.program.running, false);
});

test("The host ends with the last page that has used it", async () => {
  start(ALLOWED);
  const [one, two, idle] = [await browser.page(), await browser.page(), await browser.page()];
  await one.signAuthToken("token");
  await two.signAuthToken("token");
  await idle.status();
  await one.close();
  assert.equal(browser.program.running, true);
  await two.close();
  assert.equal(browser.program.running, false);
});

test("The host ends after ten minutes of quiet, and every request begins them anew", async (t) => {
  const page = await visit(ALLOWED);
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
  const page = await visit({ ...ALLOWED, program: new FakeProgram((request) => (silent ? undefined : willing(request))) });
  const request = assert.rejects(page.signAuthToken("token"), { code: "EXTENSION_MISSING" });
  await settle();
  page.stopExtension();
  await request;
  silent = false;
  browser.host.close();
  await page.status();
});

test("An extension that was replaced under an open page is EXTENSION_MISSING", async () => {
  const page = await visit(ALLOWED);
  browser.extensionIsGone = true;
  await assert.rejects(page.signAuthToken("token"), { code: "EXTENSION_MISSING" });
});

test("Signs of life lengthen the life of the PIN by nothing", async (t) => {
  const page = await visit(ALLOWED);
  const clock = stopClock(t);
  await page.signAuthToken("token");
  for (let minute = 0; minute < 9; minute++) {
    clock.tick(60_000);
    await page.status({ checkHost: true });
  }
  clock.tick(60_000);
  await settle();
  assert.equal(browser.program.running, false);
});

test("The PIN is forgotten after four hours, however busy, but not in the middle of a signature", async (t) => {
  let finish;
  const program = new FakeProgram((request) =>
    request.authToken === "last" ? new Promise((resolve) => (finish = () => resolve({ text: "QUJD" }))) : willing(request));
  const page = await visit({ ...ALLOWED, program });
  const clock = stopClock(t);
  await page.signAuthToken("first");
  for (let minute = 0; minute < 239; minute++) {
    clock.tick(60_000);
    if (minute % 9 === 0) await page.signAuthToken("again");
  }
  assert.equal(browser.program.starts, 1);
  const last = page.signAuthToken("last", { timeout: 600_000 });
  await settle();
  clock.tick(60_000);
  await settle();
  assert.equal(browser.program.running, true);
  finish();
  assert.equal(await last, "QUJD");
  await settle();
  assert.equal(browser.program.running, false);
});

test("A computer that has slept through the PIN's time finds no PIN when it wakes", async (t) => {
  const page = await visit(ALLOWED);
  const clock = stopClock(t);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  clock.sleep(3_600_000);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.equal(browser.program.starts, 2);
  const actions = browser.program.requests.map(({ action }) => action);
  assert.deepEqual(actions, ["GetSelCertFromToken", "PdfSignFromToken", "GetSelCertFromToken", "PdfSignFromToken"]);
});

test("The PIN's times are settings, the administrator's before the user's; what is none counts as the standard", async () => {
  const life = async (user, managed) => {
    start({ user, managed });
    const { quietMinutes, longestMinutes } = await browser.pinLife();
    return [quietMinutes, longestMinutes];
  };
  assert.deepEqual(await life({}, {}), [10, 240]);
  assert.deepEqual(await life({ quietMinutes: 5, longestMinutes: 30 }, {}), [5, 30]);
  assert.deepEqual(await life({ quietMinutes: 5, longestMinutes: 30 }, { quietMinutes: 2 }), [2, 30]);
  assert.deepEqual(await life({ quietMinutes: 0, longestMinutes: "30" }, { quietMinutes: 900 }), [1, 240]);
});

test("To read the tokens again ends the host, and the next request starts it anew", async () => {
  const page = await visit(ALLOWED);
  const panel = new Panel(browser);
  await page.signAuthToken("first");
  assert.equal(await panel.answer({ type: "readTokensAgain" }), true);
  await settle();
  assert.equal(browser.program.running, false);
  await page.signAuthToken("second");
  assert.equal(browser.program.starts, 2);
  browser.host.close();
  assert.equal(await panel.answer({ type: "readTokensAgain" }), true, "a program that does not run has nothing to read");
});

test("To read the tokens again disturbs no request under way, nor the steps of one", async () => {
  const answers = [];
  const program = new FakeProgram((request) => new Promise((resolve) => answers.push(() => resolve(willing(request)))));
  const page = await visit({ ...ALLOWED, program });
  const panel = new Panel(browser);
  const signature = page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  for (const step of [1, 2]) {
    await until(() => answers.length === step);
    assert.equal(await panel.answer({ type: "readTokensAgain" }), false);
    answers.at(-1)();
  }
  await signature;
  assert.equal(program.starts, 1);
});

test("After a login that failed the host is started anew, so that the user is asked for the PIN again", async () => {
  const program = new FakeProgram((request) => (program.starts === 1 ? { ok: false, text: "" } : willing(request)));
  const page = await visit({ ...ALLOWED, program });
  await assert.rejects(page.signAuthToken("first"), { code: "LOGIN_FAILED" });
  await settle();
  assert.equal(program.running, false);
  await page.signAuthToken("second");
  assert.equal(program.starts, 2);
});
