// The catalogues of the extension's words, held against each other and against the code, and the words of the page library.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

import { ERRORS, messageOf } from "../../extension/quillmark.js";
import { counted, language, locale, message, messageAround } from "../../extension/src/messages.js";
import { catalogueOf, speak } from "./catalogue.mjs";

const EXTENSION = fileURLToPath(new URL("../../extension/", import.meta.url));
const FOLDERS = ["consent", "doctor", "options", "popup", "src", "src/pdf", "viewer"];
const LANGUAGES = readdirSync(join(EXTENSION, "_locales")).sort();
const TRANSLATED = LANGUAGES.filter((each) => each !== "en");

/** Words in Latin letters that languages with other letters have too. */
const LATIN = /^(Quillmark|quillmark-(doctor|tokens)|PIN|OK|PDF|GST|JSON|XFA|MiB|ID|SHA-\d+|https?|localhost|example|org|origin|true|false|detail|Shift|Page|Up|Down)$/;

/** Names that are the same in each language. */
const NAMES = /Quillmark|PDF|JSON|MiB|\$\d/g;

const sources = FOLDERS.flatMap((folder) => readdirSync(join(EXTENSION, folder)).map((name) => join(folder, name)));
const read = (file) => readFileSync(join(EXTENSION, file), "utf8");
const code = sources.filter((file) => file.endsWith(".js")).map(read).join("\n");
const pages = sources.filter((file) => file.endsWith(".html"));
const matches = (text, pattern) => [...text.matchAll(pattern)].map(([, found]) => found);

/** The keys that have a message for each plural category; those without the category behind them. */
const counts = new Set(matches(code, /\bcounted\(\s*"(\w+)"/g));

const textsOf = (name) => new Map(Object.entries(catalogueOf(name)).map(([key, { message: text }]) => [key, text]));
const categoriesOf = (name) => new Intl.PluralRules(name).resolvedOptions().pluralCategories;

/** The key that the code names for a message, and the plural category that follows it: [key, category or undefined]. */
function splitKey(key) {
  const [, count, category] = /^(\w+)_([a-z]+)$/.exec(key) ?? [];
  return counts.has(count) ? [count, category] : [key, undefined];
}

const isEqualSet = (one, other) => assert.deepEqual([...new Set(one)].sort(), [...new Set(other)].sort());

function namedKeys() {
  const english = [...textsOf("en").keys()];
  const subjects = new Set(english.map((key) => key.split("_")[0]));
  const inCode = matches(code, /"([a-z]+_[a-z_]+)"/g).filter((each) => subjects.has(each.split("_")[0]));
  const inPages = pages.flatMap((page) => matches(read(page), /\bdata-message(?:-[a-z-]+)?="([^"]*)"/g));
  const inManifest = matches(readFileSync(join(EXTENSION, "manifest.common.json"), "utf8"), /__MSG_(\w+)__/g);
  return [...inCode, ...inPages, ...inManifest];
}

test("The code and the pages name each message of the English catalogue, and no other", () => {
  isEqualSet(namedKeys(), [...textsOf("en").keys()].map((key) => splitKey(key)[0]));
});

for (const name of LANGUAGES) {
  const texts = textsOf(name);

  test(`${name}: no message is missing, none is left over, and a number has each plural form of the language`, () => {
    const wanted = [...textsOf("en").keys()].map((key) => splitKey(key)[0]);
    assert.deepEqual(matches(read(`_locales/${name}/messages.json`), /^ +"(\w+)": \{/gm), [...texts.keys()], "a key stands twice");
    isEqualSet(texts.keys(), wanted.flatMap((key) => (counts.has(key) ? categoriesOf(name).map((each) => `${key}_${each}`) : key)));
    for (const [key, text] of texts) assert.ok(text.trim() === text && text !== "", key);
    assert.equal(texts.get("page_language"), name);
    assert.ok(texts.get("extension_description").length <= 132, "longer than browsers show");
  });

  test(`${name}: each message has the places of the English one, and nothing that browsers would read otherwise`, () => {
    const english = textsOf("en");
    for (const [key, text] of texts) {
      const [count, category] = splitKey(key);
      const places = (given) => matches(given, /\$(\d)/g).sort();
      assert.deepEqual(places(text), places(english.get(category ? `${count}_other` : key)), key);
      // "$name$" is a placeholder of another kind, and "$12" none of the second digit.
      assert.ok(!/\$(?!\d)|\$\d\w*\$|\$\d\d/.test(text), key);
    }
  });
}

for (const name of TRANSLATED) {
  test(`${name}: no message is English`, () => {
    const english = textsOf("en");
    const isSame = ([key, text]) => text === english.get(key) && /\p{L}/u.test(text.replace(NAMES, ""));
    assert.deepEqual([...textsOf(name)].filter(isSame).map(([key]) => key), ["page_direction"]);
    for (const key of Object.keys(ERRORS)) assert.notEqual(messageOf(key, name), ERRORS[key], key);
    if (new Intl.Locale(name).maximize().script === "Latn") return;
    const all = [...[...textsOf(name)].slice(2), ...Object.keys(ERRORS).map((key) => [key, messageOf(key, name)])];
    for (const [key, text] of all) assert.deepEqual((text.match(/[A-Za-z][\w-]*/g) ?? []).filter((word) => !LATIN.test(word)), [], key);
  });
}

test("What a page of the extension says is a message", () => {
  assert.ok(pages.length > 0);
  for (const page of pages) {
    const body = read(page).replace(/<code>.*?<\/code>|<(title|h1)>Quillmark<\/\1>|SHA-256|alt="Quillmark"|&#x\w+;/g, "");
    assert.doesNotMatch(body.replace(/<[^>]*>/g, ""), /\p{L}/u, page);
    assert.doesNotMatch(body, /\s(aria-label|alt|title|placeholder)="[^"]*\p{L}/u, page);
    assert.match(body, /<html>[^]*<script type="module" src="\.\.\/src\/localize\.js">/, page);
  }
});

test("What the code puts into a page is a message", () => {
  const statements = code.match(/(?:\.(?:textContent|title|ariaLabel|ariaDescription|placeholder) =(?!=)|setAttribute\("aria-(?:label|description)",)[^;]*;/g);
  assert.ok(statements.length > 20);
  const keys = new Set(namedKeys());
  const texts = statements.flatMap((each) => matches(each.replace(/^setAttribute\("[^"]*"/, ""), /["`]((?:[^"`\\]|\\.)*)["`]/g));
  const isText = (text) => !keys.has(text) && /\p{L}/u.test(text.replace(/\$\{[^}]*\}|SHA-256/g, ""));
  assert.deepEqual(texts.filter(isText), []);
});

test("The page library knows the languages of the extension, and each of its errors in each of them", () => {
  const library = read("quillmark.js");
  for (const key of Object.keys(ERRORS)) {
    assert.equal(new Set(LANGUAGES.map((name) => messageOf(key, name))).size, LANGUAGES.length, key);
    assert.equal(matches(library, new RegExp(`^ +(${key}): "`, "gm")).length, LANGUAGES.length, key);
  }
  const reasons = new Set(matches(library, /^ +"(\w+\.\w+)": "/gm));
  assert.ok(reasons.size > 0);
  for (const [code, reason] of [...reasons].map((key) => key.split("."))) {
    const sentences = LANGUAGES.flatMap((name) => [messageOf(code, name), messageOf(code, name, reason)]);
    assert.equal(new Set(sentences).size, 2 * LANGUAGES.length, `${code}.${reason}`);
  }
});

test("Numbers and plural forms are those of the language that is shown, and values have their places in its order", (t) => {
  t.after(() => speak("en", "en-US"));
  speak("hi", "hi-IN");
  assert.deepEqual([language(), locale()], ["hi", "hi-IN"]);
  assert.equal(message("text_found", 3, 123456), "1,23,456 में से 3");
  assert.equal(counted("documents_sign_all", 1), "1 दस्तावेज़ पर हस्ताक्षर करें");
  assert.equal(counted("documents_sign_all", 2), "2 दस्तावेज़ों पर हस्ताक्षर करें");
  const [one, two] = [{}, {}];
  assert.deepEqual(messageAround("text_found", one, two), [two, " में से ", one]);
  speak("de", "de-AT");
  assert.equal(counted("count_pages", 1234567), `${(1234567).toLocaleString("de-AT")} Seiten`);
});

test("Where the browser's language has no catalogue, numbers and dates are English as the words are", (t) => {
  t.after(() => speak("en", "en-US"));
  speak("en", "fr-FR");
  assert.equal(locale(), "en");
  assert.equal(counted("count_bytes", 1234), "1,234 bytes");
  speak("en", "en-GB");
  assert.equal(locale(), "en-GB");
});
