// Documents that one reader draws otherwise than another: nobody knows what somebody signs who sees one of them.

import assert from "node:assert/strict";
import { test } from "node:test";
import { setFlagsFromString } from "node:v8";
import { runInNewContext } from "node:vm";

import { factsOf, opened } from "../../extension/src/pdf/document.js";
import { facts } from "./pdf/sign.mjs";

const PAGE = {
  1: "<< /Type /Catalog /Pages 2 0 R >>",
  2: "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
  3: "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 300 300] >>",
};

/** A document of these objects, of which `free` are free in the table; `hidden` has rows for newer readers: [number, type]. */
function document(objects, { free = [], hidden = null } = {}) {
  let text = "%PDF-1.7\n";
  const places = new Map();
  const add = (number, body) => {
    places.set(Number(number), text.length);
    text += `${number} 0 obj\n${body}\nendobj\n`;
  };
  for (const [number, body] of Object.entries({ ...PAGE, ...objects })) add(number, body);
  const size = Math.max(...places.keys()) + 2;
  let more = "";
  if (hidden) {
    const rows = hidden.flatMap(([number, type]) => [type, places.get(number) >> 8, places.get(number) & 255, 0]);
    const index = hidden.map(([number]) => `${number} 1`).join(" ");
    more = `/XRefStm ${text.length}`;
    add(size - 1, `<< /Type /XRef /W [1 2 1] /Index [${index}] /Size ${size} /Root 1 0 R /Length ${rows.length} >>\nstream\n` +
      `${String.fromCharCode(...rows)}\nendstream`);
  }
  const at = text.length;
  const row = (number) => {
    const isUsed = places.has(number) && !free.includes(number);
    return `${String(isUsed ? places.get(number) : 0).padStart(10, "0")} ${isUsed ? "00000 n" : "65535 f"} \n`;
  };
  const table = Array.from({ length: size }, (_, number) => row(number)).join("");
  return Buffer.from(`${text}xref\n0 ${size}\n${table}trailer\n<< /Size ${size} /Root 1 0 R ${more} >>\nstartxref\n${at}\n%%EOF\n`, "latin1");
}

const isRefused = (bytes) => assert.rejects(facts(bytes), { code: "DOCUMENT_REFUSED" });
const isRead = async (bytes) => assert.equal((await facts(bytes)).pages, 1);

test("A document that promises to be longer than it is, and so to be read from its begin once it is signed, is refused", async () => {
  const linearised = (name, length) => document({ 1: `<< /${name} 1 /L ${length} /Type /Catalog /Pages 2 0 R >>` });
  for (const name of ["Linearized", "Line#61rized"]) await isRefused(linearised(name, 99_999));
  await isRead(linearised("Linearized", 100));
  await isRead(document({ 4: "<< /L 99999 >>" }));
});

test("An object that only newer readers see is refused, and one that both see is not", async () => {
  const objects = { 4: "<< /Some /Thing >>" };
  await isRefused(document(objects, { free: [4], hidden: [[4, 1]] }));
  await isRead(document(objects, { hidden: [[4, 1]] }));
});

test("An entry of a kind that nobody knows is refused", async () => {
  await isRefused(document({ 4: "<< /Some /Thing >>" }, { hidden: [[4, 3]] }));
});

test("A reference to another generation than the cross-reference has is refused", async () => {
  await isRead(document({}));
  await isRefused(document({ 2: "<< /Type /Pages /Kids [3 1 R] /Count 1 >>" }));
});

test("A dictionary in which a key stands twice is refused wherever it is: some readers take the first, others the last", async () => {
  const page = (resources) => ({ 3: `<< /Type /Page /Parent 2 0 R /MediaBox [0 0 300 300] /Resources ${resources} >>` });
  await isRead(document({ ...page("<< /XObject << /A 4 0 R /B 5 0 R >> >>"), 4: "<< /Some /Thing >>" }));
  await isRefused(document({ ...page("<< /XObject << /A 4 0 R /A 5 0 R >> >>"), 4: "<< /Some /Thing >>" }));
  await isRefused(document({ ...page("<< /XObject << /A 4 0 R /#41 5 0 R >> >>"), 4: "<< /Some /Thing >>" }));
  await isRefused(document({ ...page("<< /List [ 1 << /A << /B 1 /B 2 >> >> ] >>") }));
  await isRefused(document({ 4: "<< /Nobody /Refers /To /This /To null >>" }));
  await isRefused(document({ 4: "<< /Length 3 /Filter /A /Filter /B >>\nstream\nabc\nendstream" }));
  const twice = (text) => Buffer.from(document({}).toString("latin1").replace("/Root 1 0 R", text), "latin1");
  await isRead(twice("/Root 1 0 R /Info 2 0 R"));
  await isRefused(twice("/Root 1 0 R /Root 2 0 R"));
});

test("A document of very many objects leaves its window to the user while it is read, and nothing of them is kept", async () => {
  const objects = Object.fromEntries(Array.from({ length: 100_000 }, (_, i) => [i + 4, "<< /A [ << /B (c) >> ] >>"]));
  const file = opened(new Uint8Array(document(objects)));
  const read = new WeakRef(file.get(file.pages[0]));
  let longest = 0;
  let last = performance.now();
  const look = () => {
    longest = Math.max(longest, performance.now() - last);
    last = performance.now();
  };
  const timer = setInterval(look);
  const start = performance.now();
  await factsOf(file);
  look();
  clearInterval(timer);
  const whole = performance.now() - start;
  assert.ok(longest < whole / 3, `busy for ${longest} ms of ${whole}`);
  setFlagsFromString("--expose-gc");
  runInNewContext("gc")();
  assert.equal(read.deref(), undefined);
});

test("Form fields that branch into the same ones again and again are read once", async () => {
  const layer = (number) => `<< /T (a) /Kids [${`${number + 1} 0 R `.repeat(10)}] >>`;
  const layers = Object.fromEntries(Array.from({ length: 15 }, (_, i) => [i + 4, layer(i + 4)]));
  await isRead(document({ 1: "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [4 0 R] >> >>", ...layers, 19: "<< /T (b) >>" }));
});
