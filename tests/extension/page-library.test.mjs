// What the page library does by itself: errors, digests, and a page without the extension.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import { ERRORS, MAX_GST_TEXT_BYTES, messageOf, QuillmarkError, selectCertificate, suitableDigest } from "../../extension/quillmark.js";
import { plain } from "../../extension/src/plain-error.js";
import { ALLOWED, browser, stopClock, visit } from "./fakes.mjs"; // also gives Node.js 18 the global crypto that browsers have

const THUMBPRINT = "0123456789ABCDEF0123456789ABCDEF01234567";

test("An error carries its code, and words for people that belong to it", () => {
  const error = new QuillmarkError("TOKEN_MISSING", { detail: "No slot with token attached." });
  assert.equal(error.message, ERRORS.TOKEN_MISSING);
  assert.equal(error.detail, "No slot with token attached.");
  assert.ok(error instanceof Error);
});

test("An error of a newer extension keeps the words that came with it", () => {
  assert.equal(new QuillmarkError("BRAND_NEW", { message: "Something new." }).message, "Something new.");
});

test("The longest GST text leaves room for a certificate of 16 KiB in an answer of 1 MiB", () => {
  const answer = Math.ceil((MAX_GST_TEXT_BYTES + 16 * 1024) / 3) * 4;
  assert.ok(answer + 1024 < 1024 * 1024, `${answer} bytes`);
});

test("suitableDigest gives the digest of the bytes, by an algorithm under which it has no zero byte", async () => {
  const tried = new Set();
  for (let i = 0; i < 200; i++) {
    const variant = (attempt) => new TextEncoder().encode(`document ${i}, variant ${attempt}`);
    const { hash, hashAlgorithm, bytes, attempt } = await suitableDigest(variant);
    assert.deepEqual(bytes, variant(attempt));
    assert.equal(hash, createHash(hashAlgorithm.replace("-", "")).update(bytes).digest("base64"));
    assert.ok(!Buffer.from(hash, "base64").includes(0));
    tried.add(hashAlgorithm);
  }
  assert.ok(tried.size > 1, "200 documents need more than one algorithm");
});

// Found by counting up: the SHA-256, SHA-384 and SHA-512 digests of this text all hold a zero byte.
async function unsuitableText() {
  for (let i = 0; ; i++) {
    const text = `unsuitable ${i}`;
    if (["sha256", "sha384", "sha512"].every((name) => createHash(name).update(text).digest().includes(0))) return text;
  }
}

test("suitableDigest varies the document when no algorithm suits it", async () => {
  const bytes = new TextEncoder().encode(await unsuitableText());
  const asked = [];
  const found = await suitableDigest((attempt) => {
    asked.push(attempt);
    return attempt === 0 ? bytes : new TextEncoder().encode("varied");
  });
  assert.deepEqual(asked, [0, 1]);
  assert.equal(found.attempt, 1);
  assert.equal(new TextDecoder().decode(found.bytes), "varied");
});

test("suitableDigest of a document that cannot be varied fails when no algorithm suits it", async () => {
  const bytes = new TextEncoder().encode(await unsuitableText());
  await assert.rejects(suitableDigest(bytes), { code: "DIGEST_UNSUITABLE" });
  await assert.rejects(suitableDigest((attempt) => (attempt === 0 ? bytes : null)), { code: "DIGEST_UNSUITABLE" });
  await assert.rejects(suitableDigest(() => bytes, { maxAttempts: 3 }), { code: "DIGEST_UNSUITABLE" });
});

test("A page without the extension gets EXTENSION_MISSING, and status says so without failing", async (t) => {
  const page = await visit(undefined, "https://site.example", { extension: false });
  const clock = stopClock(t);
  const request = page.selectCertificate();
  const asked = assert.rejects(request, { code: "EXTENSION_MISSING" });
  await Promise.resolve();
  clock.tick(2_000);
  await asked;
  const status = page.status();
  await Promise.resolve();
  clock.tick(2_000);
  assert.deepEqual(await status, { extension: null, permission: null, host: null, waiting: 0 });
});

test("What the checks find reaches the page as a rejection, before anyone is asked", async () => {
  const page = await visit();
  await assert.rejects(page.signPdfHash(new Uint8Array(32), THUMBPRINT), { code: "DIGEST_UNSUITABLE" });
  await assert.rejects(page.signAuthToken("a".repeat(64 * 1024 * 1024)), { code: "TOO_LARGE" });
  await assert.rejects(page.signPdfHash(42, THUMBPRINT), { code: "INVALID_ARGUMENT" });
  await assert.rejects(page.signGstReturn("a".repeat(MAX_GST_TEXT_BYTES + 1)), { code: "TOO_LARGE" });
  await assert.rejects(page.signGstReturn("a", { timeout: 0 }), { code: "INVALID_ARGUMENT" });
  assert.equal(browser.questions.length, 0);
  assert.equal(browser.program.starts, 0);
});

test("A page without protection is told of its address, and not to install what is there", async (t) => {
  globalThis.isSecureContext = false;
  t.after(() => delete globalThis.isSecureContext);
  const page = await visit(undefined, "http://site.example", { extension: false });
  for (const ask of [page.status, page.selectCertificate, () => suitableDigest(new Uint8Array([1]))]) {
    await assert.rejects(ask(), { code: "INSECURE_PAGE", message: /https:/ });
  }
});

test("A worker is told where to ask", async () => {
  await assert.rejects(selectCertificate(), { code: "INVALID_ARGUMENT", detail: /worker/ });
});

/** Has the page declare a language until the test ends. */
function declare(t, lang) {
  globalThis.document = { documentElement: { lang } };
  t.after(() => delete globalThis.document);
}

test("An error speaks the language that is asked for, or the page's, and English where there is no other", (t) => {
  const said = (lang) => new QuillmarkError("TOKEN_MISSING", { lang }).message;
  assert.equal(said(), ERRORS.TOKEN_MISSING, "without a page");
  declare(t, "hi-IN");
  assert.match(said(), /टोकन/);
  assert.match(said("ta"), /டோக்கன்/);
  assert.match(said("DE-at"), /Krypto-Token/);
  for (const lang of ["en", "en-GB", "fr", "", "constructor", "x"]) assert.equal(said(lang), ERRORS.TOKEN_MISSING, lang);
  assert.equal(messageOf("TOKEN_MISSING"), said());
});

test("Each call takes a language, and speaks the page's without one", async (t) => {
  const page = await visit();
  const [bytes, gone] = [new Uint8Array(32), AbortSignal.abort()];
  const calls = [
    (lang) => page.selectCertificate({ lang, signal: gone }),
    (lang) => page.signAuthToken("", { lang }),
    (lang) => page.signGstReturn("a", { lang, timeout: 0 }),
    (lang) => page.signItReturn("", "", { lang }),
    (lang) => page.signPdfHash(bytes, THUMBPRINT, { lang }),
    (lang) => page.signPdfHash(42, THUMBPRINT, { lang }),
    (lang) => page.signPdf("no bytes", { lang }),
    (lang) => page.signPdfs([], { lang }),
    (lang) => page.signPdfs([{ document: bytes }], { lang, chain: ["no bytes"] }),
    (lang) => page.status({ lang, checkHost: true }),
    (lang) => page.suitableDigest(() => null, { lang }),
  ];
  declare(t, "ta");
  for (const call of calls) {
    for (const [lang, script] of [["hi", /[\u0900-\u097f]/], ["de", /(ß|[äöü]|nicht|wurde)/], [undefined, /[\u0b80-\u0bff]/], ["en", /^[\x20-\x7e]+$/]]) {
      await assert.rejects(call(lang), ({ message }) => script.test(message), `${call}, ${lang}`);
    }
  }
});

test("What the extension says of an error's code comes in the page's language, what it says beyond that as it is", async () => {
  const page = await visit(ALLOWED);
  browser.program.answer = () => ({ ok: false, text: "No slot with token attached." });
  await assert.rejects(page.signAuthToken("token", { lang: "de" }), { message: messageOf("TOKEN_MISSING", "de") });
  const special = plain(new QuillmarkError("DOCUMENT_REFUSED", { message: "It is encrypted." }));
  assert.equal(new QuillmarkError(special.code, { ...special, lang: "de" }).message, "It is encrypted.");
  const unknown = plain(Object.assign(new QuillmarkError("TIMEOUT"), { code: "BRAND_NEW" }));
  assert.equal(new QuillmarkError(unknown.code, { ...unknown, lang: "de" }).message, ERRORS.TIMEOUT, "of a newer extension");
});

test("Without the extension a page hears of that in the language of each of its calls", async (t) => {
  const page = await visit(undefined, "https://site.example", { extension: false });
  const clock = stopClock(t);
  const both = Promise.allSettled(["hi", "de"].map((lang) => page.selectCertificate({ lang })));
  await Promise.resolve();
  clock.tick(2_000);
  assert.deepEqual((await both).map(({ reason }) => reason.message), ["hi", "de"].map((lang) => messageOf("EXTENSION_MISSING", lang)));
});
