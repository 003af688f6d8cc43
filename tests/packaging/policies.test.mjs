// What the doctor says of an administrator's policies for the extension.

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { run } from "../lib/kit.mjs";
import { registration, root } from "../lib/quillmark.mjs";
import { vectors } from "../policies/vectors.mjs";
import { Computer } from "./lib/computer.mjs";

const [chromiumId] = registration.chromiumExtensions;
const [firefoxId] = registration.firefoxExtensions;

const CHROMIUM_FILES = ["chromium", "opt/chrome", "opt/edge", "brave"].map((folder) => `etc/${folder}/policies/managed/company.json`);
const FIREFOX_FILE = "etc/firefox/policies/policies.json";
const forChromium = (policy) => ({ "3rdparty": { extensions: { [chromiumId]: policy } } });
const forFirefox = (policy) => ({ policies: { "3rdparty": { Extensions: { [firefoxId]: policy } } } });
const asManifest = (data) => ({ name: firefoxId, description: "x", type: "storage", data });

/** The doctor's findings about policies on a computer with these files, by their path from the folder that stands for /. */
async function findingsWith(t, files) {
  const computer = await Computer.make(t, { browsers: ["chromium"] });
  await computer.layOut();
  for (const [file, content] of Object.entries(files)) await computer.write(join(computer.root, file), content);
  return findingsOf(computer);
}

async function findingsOf(computer) {
  const { out, err } = await computer.tool("quillmark-doctor", "--json");
  assert.equal(err, "");
  return JSON.parse(out).findings.filter(({ check }) => check === "policies");
}

const understood = (file) => new RegExp(`^The policy for the extension in .*/${file} can be understood$`);
const broken = forChromium({ deniedOrigins: ["evil.example"] });

test("What cannot be understood in a policy is what the list of cases says, in order", async () => {
  const judge = `
import json, sys
sys.dont_write_bytecode = True
sys.path.insert(0, "packaging")
from quillmark_policies import problems_in
read = lambda name: json.load(open(f"tests/policies/{name}.json", encoding="utf-8"))
policies = [case["policy"] for case in read("vectors")] + [{"deniedOrigins": [entry]} for entry in read("malformed-entries").values()]
json.dump([[each._asdict() for each in problems_in(policy)] for policy in policies], sys.stdout)
`;
  const { stdout } = await run("/usr/bin/python3", ["-c", judge], { cwd: root });
  const found = JSON.parse(stdout);
  assert.ok(found.length >= 100 && found.length === vectors.length);
  for (const [at, { what, problems }] of vectors.entries()) {
    assert.deepEqual(found[at].map(({ key, entry }) => ({ key, entry })), problems, what);
    for (const { key, words } of found[at]) assert.ok(words.includes(key), `${what}: ${words}`);
  }
});

test("The list of cases asks about origins as browsers write them, and knows three answers", () => {
  for (const { what, decisions } of vectors) {
    for (const [origin, decision] of Object.entries(decisions)) {
      assert.ok(["allowed", "denied", "ask"].includes(decision), what);
      assert.ok(origin === "null" || new URL(origin).origin === origin, `${what}: ${origin}`);
    }
  }
});

test("Each case stands in the doctor's words, with the entry and what follows", async (t) => {
  const told = async (policy) => (await findingsWith(t, { [CHROMIUM_FILES[0]]: forChromium(policy) })).map(({ text }) => text).join("\n");
  assert.match(await told({ deniedOrigins: ["https://evil.example/sign"] }),
    /"https:\/\/evil\.example\/sign" in deniedOrigins cannot be understood: .* and nothing else; so that every site is denied$/);
  assert.match(await told({ deniedOrigins: "https://evil.example" }), /deniedOrigins is no list, so that every site is denied$/);
  assert.match(await told({ allowedOrigins: ["https://*.com"] }),
    /"https:\/\/\*\.com" in allowedOrigins cannot be understood: .*two labels.*; so that it allows nothing, and users are asked about no other site$/);
  assert.match(await told({ allowedOrigins: ["http://tax.example.org"] }), /it can match nothing, for of http only localhost and 127\.0\.0\.1 may ask/);
  assert.match(await told({ allowedOrigins: ["https://tax.example.org."] }), /a name with a dot at its end is another host/);
  assert.match(await told({ onlyAllowedOrigins: "true" }), /onlyAllowedOrigins is neither true nor false, and counts as true$/);
  assert.match(await told({ quietMinutes: 61 }), /quietMinutes is no whole number from 1 to 60, and counts as 1$/);
  assert.match(await told({ allowedOrigin: [] }), /"allowedOrigin" is no key that the extension knows, and changes nothing$/);
  const long = await told({ deniedOrigins: [`https://${"a".repeat(5000)}.example`] });
  assert.ok(long.length < 600, "a long entry is cut");
  assert.match(long, /… \(5018 characters\)/);
});

test("The policies of each browser are read, and those that can be understood are said to be", async (t) => {
  const good = { allowedOrigins: ["https://tax.example.org"], onlyAllowedOrigins: true };
  const storage = ["usr/lib", "usr/share"].map((folder) => `${folder}/mozilla/managed-storage/${firefoxId}.json`);
  const files = Object.fromEntries([
    ...CHROMIUM_FILES.map((file) => [file, forChromium]), [FIREFOX_FILE, forFirefox], ...storage.map((file) => [file, asManifest]),
  ]);
  const filled = (policy) => Object.fromEntries(Object.entries(files).map(([file, wrap]) => [file, wrap(policy)]));
  for (const [policy, level, words] of [[good, "ok", /can be understood$/], [{ deniedOrigins: [""] }, "warning", /every site is denied$/]]) {
    const findings = await findingsWith(t, filled(policy));
    assert.deepEqual(findings.map((finding) => finding.level), Object.keys(files).map(() => level));
    for (const file of Object.keys(files)) {
      assert.equal(findings.filter(({ text }) => text.includes(`/${file}`) && words.test(text)).length, 1, file);
    }
  }
});

test("A managed storage of the user's own counts too, but only one that Firefox reads", async (t) => {
  const computer = await Computer.make(t, { browsers: ["firefox-esr"] });
  await computer.layOut();
  const file = join(computer.home, ".mozilla/managed-storage", `${firefoxId}.json`);
  await computer.write(file, asManifest({}));
  assert.match((await findingsOf(computer))[0].text, understood(`${firefoxId}\\.json`));
  for (const more of [{ name: "another@example.org" }, { type: "stdio" }, { type: undefined }]) {
    await computer.write(file, { ...asManifest({}), ...more });
    assert.match((await findingsOf(computer))[0].text, /Firefox does not read it: its name has to be .*, and its type "storage"$/);
  }
});

test("A file that cannot be read, or is no object on the way to the policy, is told, and stops nothing", async (t) => {
  const [file] = CHROMIUM_FILES;
  for (const [content, words] of [
    ["{", /it cannot be read as JSON, so that browsers leave out all of it$/],
    ["", /it cannot be read as JSON/],
    ["[".repeat(100_000), /it cannot be read as JSON/],
    [[], /its content is no JSON object, and browsers do not read it$/],
    [{ "3rdparty": [] }, /"3rdparty" is no JSON object/],
    [{ "3rdparty": { extensions: null } }, /"3rdparty\.extensions" is no JSON object/],
    [forChromium(["https://a.example"]), new RegExp(`"3rdparty\\.extensions\\.${chromiumId}" is no JSON object`)],
    [forChromium(null), /is no JSON object/],
  ]) {
    const findings = await findingsWith(t, { [file]: content, [FIREFOX_FILE]: forFirefox({}) });
    assert.equal(findings.length, 2, JSON.stringify(findings));
    assert.equal(findings[0].level, "warning");
    assert.match(findings[0].text, words);
    assert.match(findings[1].text, understood(FIREFOX_FILE));
  }
  const manifest = await findingsWith(t, { [`usr/lib/mozilla/managed-storage/${firefoxId}.json`]: ["data"] });
  assert.match(manifest[0].text, /its content is no JSON object/);
});

test("A folder among the files is none of them, as for Chromium", async (t) => {
  const computer = await Computer.make(t, { browsers: ["chromium"] });
  await computer.layOut();
  await mkdir(join(computer.root, CHROMIUM_FILES[0]), { recursive: true });
  assert.deepEqual(await findingsOf(computer), []);
});

test("Policies of other extensions and of the browser itself are nobody's business here", async (t) => {
  const other = { "3rdparty": { extensions: { abcdefghijklmnopabcdefghijklmnop: { deniedOrigins: [7] } } }, ShowHomeButton: true };
  assert.deepEqual(await findingsWith(t, {
    [CHROMIUM_FILES[0]]: other, [FIREFOX_FILE]: { policies: { DisableTelemetry: true } },
    "usr/lib/mozilla/managed-storage/another@example.org.json": { name: "another@example.org", type: "storage", data: [] },
  }), []);
});

test("Each file of a folder is judged, also where another says the same key", async (t) => {
  const folder = "etc/chromium/policies/managed";
  const findings = await findingsWith(t, { [`${folder}/1.json`]: broken, [`${folder}/2.json`]: forChromium({ deniedOrigins: [] }) });
  assert.deepEqual(findings.map(({ level }) => level), ["warning", "ok"]);
});

test("A policy that cannot be understood keeps no signature from being made by the sites that may ask", async (t) => {
  const computer = await Computer.make(t, { browsers: ["chromium"], more: { DISPLAY: ":stand-in" } });
  await computer.layOut();
  await computer.tool("quillmark-browsers", "register");
  await computer.write(join(computer.root, CHROMIUM_FILES[0]), forChromium({ allowedOrigins: ["https://a.example", ""] }));
  const { code, out } = await computer.tool("quillmark-doctor");
  assert.equal(code, 0, out);
  assert.match(out, /^note The policy for the extension in .*cannot be understood.*\n +-> Ask your administrator/m);
});
