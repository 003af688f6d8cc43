// What the page library does by itself: errors, digests, and a page without the extension.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import { ERRORS, MAX_GST_TEXT_BYTES, QuillmarkError, suitableDigest } from "../../extension/quillmark.js";
import { browser, stopClock, visit } from "./fakes.mjs"; // also gives Node.js 18 the global crypto that browsers have

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
