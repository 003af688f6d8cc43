// One name for one thing, and one style for the names of files and tests.

import assert from "node:assert/strict";
import { basename } from "node:path";
import { test } from "node:test";

import { filesOfTree, read } from "./lib/tree.mjs";

const gtest = /^(?:TYPED_)?TEST(?:_F|_P)?\((\w+),\s*(\w+)\)/gm;

test("C++ below tests/unit is in CamelCase, and a file with tests, and no other, ends in Test.cpp", () => {
  const files = filesOfTree("tests/unit/*.cpp", "tests/unit/*.h");
  assert.ok(files.length > 0);
  const isNamedWell = (file) => /^[A-Z][A-Za-z0-9]*\.(cpp|h)$/.test(basename(file)) &&
    file.endsWith("Test.cpp") === (read(file).match(gtest) !== null);
  assert.deepEqual(files.filter((file) => !isNamedWell(file)), []);
});

test("The name of a C++ test is a sentence in CamelCase, or some with underscores between", () => {
  const names = filesOfTree("tests/*.cpp").flatMap((file) => [...read(file).matchAll(gtest)].map(([, , name]) => `${file}: ${name}`));
  assert.ok(names.length > 0);
  assert.deepEqual(names.filter((name) => !/: [A-Z0-9][A-Za-z0-9]*(_[A-Z0-9][A-Za-z0-9]*){0,2}$/.test(name)), []);
});

test("JavaScript files are in kebab-case, and those with tests end in .test.mjs", () => {
  const files = filesOfTree("*.mjs", "*.js");
  assert.ok(files.length > 0);
  const isNamedWell = (file) => /^[a-z0-9]+(-[a-z0-9]+)*(\.test\.mjs|\.mjs|\.js)$/.test(basename(file)) &&
    (file.endsWith(".test.mjs") || !/^(test|it|describe)\(/m.test(read(file)));
  assert.deepEqual(files.filter((file) => !isNamedWell(file)), []);
});

test("In the root there are no commands but demo, install and test", () => {
  const inRoot = filesOfTree().filter((file) => !file.includes("/"));
  assert.deepEqual(inRoot.filter((file) => read(file).startsWith("#!")).sort(), ["demo", "install", "test"]);
});

test("Documents for developers, and the code, say \"host\"", () => {
  const documents = filesOfTree("*.md").filter((file) => !forUsers(file) && !file.startsWith("tests/"));
  const code = filesOfTree("ck/*", "QMChromeExtHost/*", "QMTokenDriver/*", "quillmark-tokens/*").filter((file) => /\.(cpp|h|txt)$/.test(file));
  assert.ok(documents.length > 0 && code.length > 0);
  const other = /(?<!")\b(signing\s+program|the(\s|\/\/\/?|#)+program)\b/gi;
  const texts = [...documents.map((file) => [file, read(file)]), ...code.map((file) => [file, withoutUsersTexts(file)])];
  assert.deepEqual(naming(texts, other), []);
});

test("Texts for users say \"signing program\"", () => {
  const files = filesOfTree("*.md", "packaging/man/*", "packaging/debian/control", "extension/*.html", "extension/_locales/en/messages.json", "extension/managed-storage.json").filter(forUsers);
  assert.ok(files.length > 0);
  assert.deepEqual(naming(files.map((file) => [file, read(file)]), /\b(the\s+(program(?! that it comes from)|host)|native-messaging\s+host)\b/gi), []);
});

/** What those read who do not build Quillmark: they use it, put it into their pages, or install it for others. */
function forUsers(file) {
  return !file.endsWith(".md") || /^(README|NEWS|SECURITY)\.md$|^docs\/(accessibility|errors|settings|troubleshooting|tokens)\.md$|^packages\//.test(file);
}

/** A source file; that of quillmark-tokens without the texts that it writes for users. */
function withoutUsersTexts(file) {
  return file.startsWith("quillmark-tokens/") ? read(file).replace(/R"\([^]*?\)"|"[^"\n]*"/g, '""') : read(file);
}

/** Each match in these [file, text], as "file:line: match". */
function naming(texts, pattern) {
  return texts.flatMap(([file, text]) => [...text.matchAll(pattern)]
    .map((match) => `${file}:${text.slice(0, match.index).split("\n").length}: ${match[0].replace(/\s+/g, " ")}`));
}
