// How a text is shown to the one who signs it: nothing hides in it, and JSON is laid out.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { test } from "node:test";

import { piecesOf } from "../../extension/consent/characters.js";
import { layOut } from "../../extension/consent/json-layout.js";
import "./catalogue.mjs";

const marks = (text) => piecesOf(text).filter(({ mark }) => mark).map(({ mark }) => mark);

test("Characters that hide, reorder or look like nothing are marked by their numbers", () => {
  const odd = {
    "U+0000": "\0", "U+0007": "\x07", "U+000D": "\r", "U+007F": "\x7f", "U+00A0": "\xa0", "U+00AD": "\xad", "U+034F": "\u034f",
    "U+061C": "\u061c", "U+115F": "\u115f", "U+180E": "\u180e", "U+200B": "\u200b", "U+200D": "\u200d", "U+2003": "\u2003",
    "U+2028": "\u2028", "U+202E": "\u202e", "U+2066": "\u2066", "U+2800": "\u2800", "U+3000": "\u3000", "U+3164": "\u3164",
    "U+FE0F": "\ufe0f", "U+FEFF": "\ufeff", "U+FFA0": "\uffa0", "U+FFFE": "\ufffe", "U+E000": "\ue000", "U+1D173": "\u{1d173}",
    "U+E0041": "\u{e0041}", "U+E0100": "\u{e0100}", "U+10FFFF": "\u{10ffff}",
  };
  for (const [number, character] of Object.entries(odd)) assert.deepEqual(marks(`a${character}b`), [number], number);
});

const LETTERS = ["א", "ب", "ܐ", "ހ", "ߊ", "ﷲ", "ﺎ", "\u{10d00}", "\u{1e900}"];
const runs = (text) => piecesOf(text).filter(({ isRun }) => isRun).map((piece) => piece.text);

test("Words that are written from right to left are one run, with their marks and stops and the plain blanks between them", () => {
  for (const text of [...LETTERS, "مرحبا  بالعالم", "سِّلام", "שָׁלוֹם עוֹלָם", "سلام، عالم؟", "یہ ایک جملہ ہے۔", "می\u200cخواهم"]) {
    assert.deepEqual(piecesOf(text), [{ text, isRun: true }]);
  }
});

test("What does not belong to such words stands outside of their runs, and breaks them", () => {
  for (const between of [" 100 ", " (", ") ", ": ", " - ", "\n", "\t", "\u200b", "\u202e", "\u2067", "\u00a0", " \u0660 ", " \u06f1\u06f2 ", " \u066a ", " \ufdfc ", " ₹ "]) {
    assert.deepEqual(runs(`دفع${between}ألف`), ["دفع", "ألف"], JSON.stringify(between));
  }
  assert.deepEqual(runs(" سلام "), ["سلام"]);
  assert.deepEqual(runs(`دفع${" ".repeat(100)}ألف`), ["دفع", "ألف"]);
});

test("Digits and signs of such scripts are marked, and so are words that touch letters or digits of others", () => {
  const numberOf = (letter) => `U+${letter.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;
  for (const letter of [...LETTERS, "٣", "۳", "٪", "﷼", "\u064e"]) {
    assert.deepEqual(piecesOf(`x${letter}`)[1], { text: letter, mark: numberOf(letter), isLetter: true });
  }
  // An alef looks like a one.
  for (const text of ["ا00", "1ا", "xا", "اx", "٣ا", "ا\u093e"]) assert.deepEqual(runs(text), [], text);
  assert.equal(piecesOf("\u200f")[0].isLetter, false);
  assert.deepEqual(marks(`س\u0336 س${"\u064e".repeat(6)}`).slice(0, 3), ["U+0633", "U+0336", "U+0633"]);
});

test("Joiners within words are marked, and stay with the letters that they shape", () => {
  assert.deepEqual(piecesOf("क्\u200dष"), [{ text: "क्" }, { text: "\u200d", mark: "U+200D", isJoiner: true }, { text: "ष" }]);
  assert.deepEqual(marks("a\u200d\u200c"), ["U+200D", "U+200C"]);
  assert.deepEqual(marks("سلام\u200c سلام"), ["U+200C"]);
});

test("Everything that a run is made of has one direction, by Unicode's own table", async () => {
  const all = Array.from({ length: 0x20000 }, (_, code) => code).filter((code) => code < 0xd800 || code > 0xdfff);
  const inRuns = all.filter((code) => code !== 0x200c && code !== 0x200d && runs(`ب${String.fromCodePoint(code)}ب`)[0]?.length > 2);
  assert.ok(inRuns.length > 1_000);
  const script = "import sys, unicodedata\nfor code in sys.stdin.read().split(): print(code, unicodedata.bidirectional(chr(int(code))))";
  const { stdout } = spawnSync("python3", ["-c", script], { input: inRuns.join(" "), encoding: "utf8" });
  // CS is the Arabic comma, WS the blank. What Python's older table does not know it gives no class.
  const others = stdout.trim().split("\n").filter((line) => !/^\d+ (R|AL|NSM)?$/.test(line));
  assert.deepEqual(others, ["32 WS", `${0x060c} CS`]);
});

test("A hostile text is split in a time that grows with its length alone", () => {
  const hostile = ["ا".repeat(16_384), `${"ا ".repeat(8_192)}1`, "ا1 ".repeat(5_000), "ا\u200c".repeat(8_192), `${"ا".repeat(16_384)}1`, `ا${"،".repeat(16_384)}1`];
  const start = performance.now();
  for (const text of hostile) assert.equal(piecesOf(text).map((piece) => piece.text).join(""), text);
  assert.ok(performance.now() - start < 2_000);
});

test("What people write is drawn as it is", () => {
  const text = '{"gstin": "33ABCDE1234F1Z5",\n\t"note": "₹ 1,25,000 – नमस्ते வணக்கம் é 😀"}';
  assert.deepEqual(piecesOf(text), [{ text }]);
});

test("Marks that strike out or cover a letter are marked themselves", () => {
  assert.deepEqual(marks("1\u03360\u20dd"), ["U+0336", "U+20DD"]);
  assert.deepEqual(marks(`a${"\u0301".repeat(6)}`), ["U+0301"]);
});

test("What would be pushed out of sight by blanks is not", () => {
  assert.deepEqual(marks(`a${" ".repeat(99)}b`), []);
  assert.deepEqual(marks(`"tax": 1${"\n".repeat(5000)}"tax": 2`), ["5,000 blanks"]);
});

test("The pieces put together are the text", () => {
  const text = `a\u200b${" ".repeat(300)}אב\u{e0041}😀\r\n`;
  assert.equal(piecesOf(text).map((piece) => piece.text).join(""), text);
});

test("JSON is laid out without changing a token", () => {
  const json = '{"a":1.0,"b":[1e5,{},[]],"c":{"d":"x\\u0041 ,{"},"e":null}';
  const { text, duplicates } = layOut(json);
  assert.equal(text, '{\n  "a": 1.0,\n  "b": [\n    1e5,\n    {},\n    []\n  ],\n  "c": {\n    "d": "x\\u0041 ,{"\n  },\n  "e": null\n}');
  assert.equal(duplicates, 0);
  assert.deepEqual(JSON.parse(text), JSON.parse(json));
});

test("Members that stand twice in one object are marked, however they are written", () => {
  const { text, ranges, duplicates } = layOut('{"tax":100,"x":{"tax":1},"t\\u0061x":99999999,"list":["tax","tax"]}');
  assert.equal(duplicates, 1);
  assert.deepEqual(ranges.map(({ start, end }) => text.slice(start, end)), ['"tax"', '"t\\u0061x"']);
  assert.equal(layOut('{"a":1,"a":2,"a":3}').duplicates, 2);
});

test("What is no JSON object or array, or too long, has no layout; a deep one costs little", () => {
  for (const text of ["", "text", "42", '"a"', '{"a":', "{'a': 1}", "[1,]", `[${" ".repeat(1024 * 1024)}]`]) assert.equal(layOut(text), null);
  const deep = layOut("[".repeat(5000) + "]".repeat(5000));
  assert.equal(deep, null);
});
