// The extension as it is made: what is bundled, how, and what it may do.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { existsSync, mkdtempSync, readdirSync, readFileSync, rmSync, statSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, relative } from "node:path";
import { after, before, test } from "node:test";

import { make, manifest } from "../../extension/make.mjs";

let folder;
before(async () => {
  folder = mkdtempSync(join(tmpdir(), "quillmark-build-"));
  await make(join(folder, "one"));
});
after(() => rmSync(folder, { recursive: true }));

function filesIn(place) {
  return readdirSync(place).flatMap((name) => {
    const path = join(place, name);
    return statSync(path).isDirectory() ? filesIn(path) : [path]; // also behind links
  }).sort();
}

const digests = (place) =>
  filesIn(place).map((file) => `${relative(place, file)} ${createHash("sha256").update(readFileSync(file)).digest("hex")}`);

const libraries = (...more) => join(folder, "one/chromium/libraries", ...more);

test("Made once more, and from another folder, each file is the same", async () => {
  const place = process.cwd();
  process.chdir(tmpdir());
  try {
    await make(join(folder, "two"));
  } finally {
    process.chdir(place);
  }
  const first = digests(join(folder, "one"));
  assert.ok(first.length > 200);
  assert.deepEqual(digests(join(folder, "two")), first);
});

test("The content policy of both browsers lets nothing run or load but the extension's own files", async () => {
  for (const browser of ["chromium", "firefox"]) {
    const { extension_pages: policy } = (await manifest(browser)).content_security_policy;
    const rules = Object.fromEntries(policy.split(";").map((rule) => rule.trim().split(/\s+(.*)/)));
    assert.equal(rules["default-src"], "'none'");
    for (const sources of Object.values(rules)) assert.match(sources, /^'(self|none)'$/, policy);
  }
});

test("Each bundled library can be read, and imports nothing from elsewhere", () => {
  const scripts = readdirSync(libraries()).filter((name) => name.endsWith(".js"));
  assert.ok(scripts.length >= 5);
  for (const name of scripts) {
    const text = readFileSync(libraries(name), "utf8");
    const lines = text.split("\n");
    assert.ok(text.length / lines.length < 80, `${name}: ${text.length} characters in ${lines.length} lines`);
    assert.doesNotMatch(text, /^import .* from "(?!\.)/m, name);
    assert.doesNotMatch(text, /(import|importScripts)\(["']https?:/, name);
  }
});

test("Beside the libraries lies the licence of every package in them", () => {
  const licences = readdirSync(libraries("licences")).map((name) => readFileSync(libraries("licences", name), "utf8"));
  for (const name of ["pdfjs-dist", "@cantoo/pdf-lib", "pkijs", "asn1js", "fflate"]) {
    const licence = licences.find((text) => text.startsWith(`${name} `));
    assert.ok(licence?.length > 500, name);
  }
  assert.deepEqual(licences.filter((text) => text.includes("no more than this name")), []);
});

test("Every file that the window for documents names is there", () => {
  const html = readFileSync(join(folder, "one/firefox/viewer/viewer.html"), "utf8");
  const named = [...html.matchAll(/(?:src|href)="([^"]+)"/g)].map(([, path]) => path);
  assert.ok(named.length >= 4);
  for (const path of named) assert.ok(existsSync(join(folder, "one/firefox/viewer", path)), path);
  const imports = filesIn(join(folder, "one/firefox")).filter((file) => /\/(viewer|src|consent)\/.*\.js$/.test(file)).flatMap((file) =>
    [...readFileSync(file, "utf8").matchAll(/^(?:import|\} from|export).* from "(\.[^"]+)"|^\} from "(\.[^"]+)"/gm)].map(([, one, other]) => join(file, "..", one ?? other)));
  assert.ok(imports.length > 50);
  assert.deepEqual(imports.filter((file) => !existsSync(file)), []);
  const size = filesIn(join(folder, "one/chromium")).reduce((sum, file) => sum + statSync(file).size, 0);
  process.stderr.write(`The extension has ${size} bytes\n`);
});
