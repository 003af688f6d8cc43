// Certificates made to do harm: the records are JSON, the window can be used, nothing is opened, the host lives.

import assert from "node:assert/strict";
import { mkdir, readFile, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { test } from "node:test";

import { bin, product } from "../lib/quillmark.mjs";
import {
  bytesOf, CANCEL_TEXT, CHOOSE, FAILURE_PREFIX, NORMAL_END, oddCertificate, sleep, TAGS, waitFor, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const screenshots = join(dirname(bin), "screenshots");

// The file that names ask for, and a port where nobody listens.
const BAIT = "bait-of-the-tests.png";
const ADDRESS = "http://127.0.0.1:9";

const markup = {
  "an image": { CN: `<img src=${BAIT}><img src="file:./${BAIT}">`, O: `<img src="${ADDRESS}/i.png">` },
  "a link": { CN: `<a href="${ADDRESS}/a">click here</a>`, O: `<a href="file:./${BAIT}">or here</a>` },
  "a page": {
    CN: `<body bgcolor=red background="${BAIT}"><title>T</title>`, O: `<meta http-equiv=refresh content="0;${ADDRESS}">`,
  },
  "a script": { CN: `<script src="${ADDRESS}/s.js">alert(1)</script>`, O: `<link rel=stylesheet href="${BAIT}">` },
  "the end of its card": { CN: "</b></span></div><hr>", O: "<!-- and nothing else -->" },
  "a comment": { CN: "<!--", O: "<pre><font size=+99><h1>" },
  "huge tables": { CN: "<table border=9 width=99999999><tr><td>".repeat(100), O: "<table><tr><td>".repeat(1000) },
  "deep nesting": { CN: "<b>".repeat(100_000), O: "<ul><li>".repeat(10_000) },
  "many lines": { CN: "<br>".repeat(10_000), O: "<p>".repeat(10_000) },
};

/** An attribute of the given string type with bytes out of which no text may be made. */
function bytes(tag, hex) {
  return { tag, bytes: Buffer.from(hex, "hex") };
}

/** `holds`: what the subject's text has of it; `isTooLarge`: the record says only that. */
const oddBytes = {
  "a name without an end": { subject: { CN: "W".repeat(200_000), O: "O" } },
  "a name of many words": { subject: { CN: "word ".repeat(40_000), O: "name ".repeat(40_000) } },
  "zero bytes": { subject: { CN: "bank.example\0.evil.example", O: "\0\0" }, holds: "bank.example" },
  "right-to-left marks": { subject: { CN: "\u202egnp.exe\u200f", O: "\u2067\u2066\u202d" }, holds: "\u202egnp.exe\u200f" },
  "broken UTF-8": { subject: { CN: bytes(TAGS.utf8, "41fffec328eda080f09f42") } },
  "half a BMP character": { subject: { CN: bytes(TAGS.bmp, "0041d83d0042dc00d8") } },
  "no Unicode": { subject: { CN: bytes(TAGS.universal, "0000004100110000ffffffff") } },
  "other letters in old strings": { subject: { CN: bytes(TAGS.teletex, "4dfc6c6c8000") } },
  "control characters": { subject: { CN: '\x01\x1b[2J\r\n\t"\\\x7f\u0085\u2028', O: "\u0000\u0001" } },
  "an empty name": { subject: {} },
  "a large extension": { subject: { CN: "large" }, extensions: [["1.2.3.4", Buffer.alloc(600_000, 1)]], holds: "large" },
  "an extension of 1 MiB": { subject: { CN: "x" }, extensions: [["1.2.3.4", Buffer.alloc(1 << 20, 1)]], isTooLarge: true },
};

/** A host with these certificates, in this order, and one good one, the last. */
async function hostWith(t, certificates, options = {}) {
  const list = [...certificates, await world.certificate()].map((certificate, i) => ({ certificate, id: `id-${i}` }));
  const prepare = (folder) => writeFile(join(folder, BAIT), "");
  const { host } = await world.hostWithFake(t, { certificates: list }, { prepare, ...options });
  return host;
}

/** Asks for a choice and waits until the list is there. */
async function openList(host, count) {
  host.send(CHOOSE);
  const id = await world.desktop.window(WINDOW_TITLE);
  await waitFor("the list", async () => (await host.logLines()).includes(`${count} items Loaded in Certificate List.`),
    { timeout: 10_000 });
  return id;
}

/** Chooses with the keyboard, then OK; the reply must be UTF-8 and JSON, and so must the record in it. */
async function chooseWithKeys(host, keys, count) {
  const id = await openList(host, count);
  await world.desktop.click(id, 300, 90);
  await world.desktop.key(id, "Home");
  for (const key of keys) await world.desktop.key(id, key);
  await world.desktop.click(id, ...host.user.okButton);
  const reply = await host.reply({ timeout: 5000 });
  assert.equal(reply.status_cd, 1, reply.result);
  return JSON.parse(reply.result);
}

test("Names with markup are shown as they are, open nothing, and take no other card away", async (t) => {
  const entries = Object.entries(markup);
  const certificates = await Promise.all(entries.map(([name, subject], i) =>
    oddCertificate(world.folder, `markup-${i}`, { subject })));
  const trace = join(await world.cleanupOf(t).folder("trace"), "calls");
  const strace = ["strace", "-f", "-qq", "-e", "trace=open,openat,openat2,connect,execve", "-s", "200", "-o", trace];
  // The leak sanitizer does not work in a process that is traced.
  const env = { ASAN_OPTIONS: `${process.env.ASAN_OPTIONS ?? ""}:detect_leaks=0` };
  const host = await hostWith(t, certificates, { wrapper: strace, env });
  const count = entries.length + 1;

  // Over all cards with the pointer, a click on the link, and down to the last card with the keys.
  const id = await openList(host, count);
  await mkdir(screenshots, { recursive: true });
  await world.desktop.screenshot(join(screenshots, "names-with-markup.png"), id);
  for (let y = 85; y < 370; y += 7) await world.desktop.click(id, 40, y);
  await world.desktop.key(id, "End");
  await sleep(500);
  await world.desktop.screenshot(join(screenshots, "names-with-markup-end.png"), id);
  await world.desktop.click(id, ...host.user.cancelButton);
  assert.equal((await host.reply({ timeout: 5000 })).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);

  const last = await chooseWithKeys(host, ["End"], count);
  assert.equal(last.CKA_ID, `id-${entries.length}`);
  const first = await chooseWithKeys(host, [], count);
  assert.deepEqual(bytesOf(first.Cert), certificates[0].bytes);
  assert.deepEqual(await host.finish(), NORMAL_END);

  // What a card says is what the certificate says, in the log and in the list alike.
  const log = await host.logText();
  for (const [name, { CN, O }] of entries) assert.ok(log.includes(`<b>${CN}</b>&nbsp;()</span><br>${O} <br>`), name);

  const calls = (await readFile(trace, "utf8")).split("\n");
  assert.ok(calls.some((call) => call.includes("QMHostSettings.json")), "the trace has seen the host's files");
  assert.deepEqual(calls.filter((call) => call.includes(BAIT)), []);
  assert.deepEqual(calls.filter((call) => /connect\(.*AF_INET/.test(call)), []);
  assert.equal(calls.filter((call) => /execve\(/.test(call)).length, 1, "no other program is started");
});

test("Whatever bytes a certificate has: its record is JSON, and each card can be chosen", async (t) => {
  const entries = Object.entries(oddBytes);
  const certificates = await Promise.all(entries.map(([, odd], i) => oddCertificate(world.folder, `bytes-${i}`, odd)));
  const host = await hostWith(t, certificates);
  const count = entries.length + 1;
  for (const [i, [name, { holds, isTooLarge }]] of entries.entries()) {
    const record = await chooseWithKeys(host, Array.from({ length: i }, () => "Down"), count);
    assert.equal(record.CKA_ID, `id-${i}`, name);
    if (isTooLarge) {
      assert.deepEqual(Object.keys(record), ["ErrMsg", "ChainCert", "CKA_ID"], name);
    } else {
      assert.deepEqual(bytesOf(record.Cert), certificates[i].bytes, name);
      if (holds) assert.ok(record.SelCertSubject.includes(holds), `${name}: ${record.SelCertSubject}`);
    }
  }
  assert.equal((await chooseWithKeys(host, ["End"], count)).CKA_ID, `id-${entries.length}`);
  assert.equal((await host.request({ text: "on" })).result, `${FAILURE_PREFIX}echo: on`);
  assert.deepEqual(await host.finish(), NORMAL_END);
});
