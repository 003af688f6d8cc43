// The journal of signatures, the tool that checks it, and what the toolbar shows.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

import { Journal } from "../../extension/src/journal.js";
import { ALLOWED, browser, DIGEST, RECORD, SITE, start, storage, visit } from "./fakes.mjs";

const TOOL = fileURLToPath(new URL("../../packaging/quillmark-journal", import.meta.url));

const entries = async (journal) => (await journal.read()).lines.map((line) => JSON.parse(line));

/** What the tool says of these lines: {status, words}. */
function judged(lines, ...options) {
  const folder = mkdtempSync(join(tmpdir(), "quillmark-journal-"));
  try {
    const file = join(folder, "journal.jsonl");
    writeFileSync(file, lines.map((line) => `${line}\n`).join(""));
    const { status, stdout } = spawnSync(TOOL, [file, ...options], { encoding: "utf8" });
    return { status, words: stdout.replace(`${file}: `, "").trim() };
  } finally {
    rmSync(folder, { recursive: true });
  }
}

test("Each signature is an entry with what was signed, for whom, with what, and what came of it", async () => {
  const page = await visit(ALLOWED);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  browser.program.answer = () => ({ ok: false, text: "User Canceled without Selecting Certificate." });
  await assert.rejects(page.signGstReturn("₹ 1,000"), { code: "USER_CANCELLED" });
  await assert.rejects(page.selectCertificate(), { code: "USER_CANCELLED" });
  const [signed, failed, ...more] = await entries(browser.journal);
  assert.deepEqual(more, [], "a choice is no signature");
  const { time, previous, ...rest } = signed;
  assert.ok(Math.abs(Date.parse(time) - Date.now()) < 60_000);
  assert.deepEqual(rest, {
    number: 1, origin: SITE, operation: "signPdfHash", algorithm: "SHA-256", digest: "07".repeat(32),
    certificate: RECORD.CertThumbPrint, subject: RECORD.SelCertSubject, outcome: "signed",
  });
  assert.equal(failed.outcome, "USER_CANCELLED");
  assert.equal(failed.digest.length, 64);
});

test("A private window leaves nothing in the journal, and no origin in the popup", async () => {
  start(ALLOWED);
  await (await browser.page(SITE, { incognito: true })).signAuthToken("token");
  assert.deepEqual(await entries(browser.journal), []);
  assert.deepEqual((await browser.signatures.look()).map(({ origin, outcome }) => [origin, outcome]), [[null, "signed"]]);
});

test("The badge counts the signatures that came without a window, until the popup has shown them", async () => {
  const page = await visit(ALLOWED);
  await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  assert.equal(browser.badge, 0, "the user has chosen a certificate for it");
  for (let i = 0; i < 3; i++) await page.signPdfHash(DIGEST, RECORD.CertThumbPrint);
  await page.signAuthToken("token");
  assert.equal(browser.badge, 3);
  assert.equal((await browser.signatures.look()).length, 5);
  assert.equal(browser.badge, 0);
});

test("A journal that cannot be written keeps nobody from a signature", async (t) => {
  t.mock.method(console, "error", () => {});
  start(ALLOWED);
  browser.user.set = () => Promise.reject(new Error("the disk is full"));
  assert.ok(await (await browser.page()).signAuthToken("token"));
  assert.equal(console.error.mock.callCount(), 1);
});

test("The chain is whole as it was written, by many at once too", async () => {
  const journal = new Journal(storage());
  await Promise.all(Array.from({ length: 250 }, (_, i) => journal.append({ origin: SITE, what: `₹ ${i}` })));
  const { lines, head } = await journal.read();
  assert.equal(lines.length, 250);
  assert.deepEqual(judged(lines, "--head", head), { status: 0, words: `250 entries, the chain is whole; hash of the last: ${head}` });
  assert.equal(judged([]).status, 0);
});

test("What was changed, left out, exchanged, added or cut off is found", async () => {
  const journal = new Journal(storage());
  for (let i = 0; i < 5; i++) await journal.append({ origin: SITE, what: i });
  const { lines, head } = await journal.read();
  const with_ = (place, ...instead) => [...lines.slice(0, place), ...instead, ...lines.slice(place + 1)];
  assert.match(judged(with_(2, lines[2].replace('"what":2', '"what":3'))).words, /line 4 does not follow/);
  assert.match(judged(with_(2)).words, /line 3 does not follow/);
  assert.match(judged([lines[0], lines[2], lines[1], ...lines.slice(3)]).words, /line 2 does not follow/);
  assert.match(judged(with_(2, lines[2], lines[2])).words, /line 4 does not follow/);
  assert.match(judged(lines.slice(0, 4), "--head", head).words, /not the one with this hash/);
  for (const odd of ["", "no JSON", "[]", "{}", '{"number": "1", "previous": ""}', "null"]) {
    assert.equal(judged([odd]).status, 1, odd);
  }
  assert.equal(judged(lines.slice(2)).status, 0, "a journal that has dropped its oldest");
});

test("The journal keeps the newest 5,000, and its chain goes on", async () => {
  const area = storage();
  const journal = new Journal(area);
  for (let i = 0; i < 5_250; i++) await journal.append({ what: i });
  const { lines, head } = await journal.read();
  assert.equal(lines.length, 5_000);
  assert.equal(JSON.parse(lines.at(-1)).number, 5_250);
  assert.equal(judged(lines, "--head", head).status, 0);
  const kept = Object.keys(area.values).filter((name) => name.startsWith("journal."));
  assert.ok(kept.length <= 52, `${kept.length} blocks of 100`);
});
