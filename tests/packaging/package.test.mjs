// The Debian package: made by tools/package, and as root installed, used by an ordinary user and in the browsers as they come,
// and purged.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { readdir, readFile, rm, stat, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { test } from "node:test";

import { manifest } from "../../extension/make.mjs";
import { blocksOf } from "../docs/lib/blocks.mjs";
import { CHROMIUM_POLICY, GST_TEXT } from "../lib/browser-kit.mjs";
import { AS_NOBODY, chooseAndLogIn, NOBODY, NORMAL_END, run, runUnchecked, SoftToken, World } from "../lib/kit.mjs";
import { product, root } from "../lib/quillmark.mjs";
import { runStrangersTest, strangersFolder } from "../packages/lib/stranger.mjs";
import { forcedVersion, signatureIn } from "./lib/installed-browser.mjs";

const world = World.forThisFile(product);
const MINUTES = 60_000;
let usual;

const manifests = ["/etc/chromium/native-messaging-hosts", "/etc/opt/chrome/native-messaging-hosts",
  "/etc/opt/edge/native-messaging-hosts", "/usr/lib/mozilla/native-messaging-hosts"].flatMap((folder) => ["host", "doctor"].map((name) => `${folder}/quillmark.${name}.json`));

test("The package installs, signs for a user, and is purged without a trace", { skip: await reasonToSkip() }, async (t) => {
  await rm(CHROMIUM_POLICY, { force: true }); // of a run that was killed
  const before = await traces();
  const deb = await usualPackage();
  t.after(() => runUnchecked("dpkg", ["--purge", "quillmark"])); // after a failure
  await run("apt-get", ["install", "-y", "--no-install-recommends", deb], { timeout: 5 * MINUTES });
  const { stdout: listed } = await run("dpkg", ["-L", "quillmark"]);
  const files = listed.toString().split("\n").filter(Boolean);

  for (const tool of ["quillmark-browsers", "quillmark-doctor", "quillmark-journal", "quillmark-tokens"]) {
    assert.ok(files.includes(`/usr/share/man/man1/${tool}.1.gz`), `${tool} has no manual page`);
    assert.match((await run(tool, ["--help"])).stdout.toString(), /^usage: /i, tool);
  }
  const commands = await Promise.all(manifests.map(async (file) => JSON.parse(await readFile(file)).path));
  assert.deepEqual([...new Set(commands)], ["/usr/lib/quillmark/quillmark-host", "/usr/lib/quillmark/quillmark-doctor-host"]);
  const { stdout: status } = await runUnchecked("quillmark-browsers", ["status", "--system", "--json"]);
  const states = JSON.parse(status).browsers.flatMap(({ system }) => (system ? [system.state] : []));
  assert.deepEqual([...new Set(states)], ["registered"]);

  await signsForUser(t, commands[0]);
  const stranger = await strangersFolder(world.cleanupOf(t), { others: ["quillmark", "quillmark-verify"] });
  await takeFirstSteps(stranger);
  const passes = async (file, browser) => {
    const env = { QUILLMARK_BROWSER: browser, BROWSER: browser, HOME: stranger, LC_ALL: "C" };
    const { code, output } = await runStrangersTest(stranger, file, env, { asNobody: true });
    assert.equal(code, 0, output);
  };
  for (const browser of ["chromium", "firefox"]) {
    await t.test(`${browser} has the extension and signs`, async (t) => assert.equal(await signatureIn(browser, t, world), GST_TEXT));
    await t.test(`the test kit of an ordinary user finds the package, and signs in ${browser}, in the locale C`, () => passes("signs.test.mjs", browser));
  }
  await t.test("the first steps of the recipes lead to a login in Firefox", () => passes("login.test.mjs", "firefox"));
  await t.test("the test kit of an ordinary user brings the faults about", () => passes("faults.test.mjs", "chromium"));

  await run("dpkg", ["--purge", "quillmark"]);
  assert.deepEqual(files.filter((file) => file.includes("quillmark") && existsSync(file)), []);
  assert.deepEqual(await traces(), before);
});

test("Packed with an administrator's key and forced by policy, Chromium has the extension", { skip: await reasonToSkip() }, async (t) => {
  assert.equal(await forcedVersion(t, world), (await manifest("chromium")).version);
});

test("Made in another folder, time zone and umask, the package is the same bit by bit", async (t) => {
  const usual = await usualPackage();
  const folder = join(await world.cleanupOf(t).folder("made-again"), "elsewhere/by-a-longer-name");
  const again = await makePackage(folder, { umask: "077", env: { TZ: "Asia/Kolkata", LC_ALL: "C.UTF-8" } });
  assert.notEqual(dirname(again), dirname(usual));
  const [one, other] = await Promise.all([usual, again].map((deb) => readFile(deb)));
  if (one.equals(other)) return;
  const members = await Promise.all([usual, again].map(async (deb) => (await run("dpkg-deb", ["--contents", deb])).stdout.toString()));
  assert.equal(members[1], members[0]);
  assert.fail(`${usual} and ${again} differ, in the contents of files`);
});

test("The package lists what is in it: each library that it brings, and each that its programs load", async (t) => {
  const folder = await world.cleanupOf(t).folder("unpacked");
  await run("dpkg-deb", ["--extract", await usualPackage(), folder]);
  const list = JSON.parse(await readFile(join(folder, "usr/share/doc/quillmark/quillmark.spdx.json"), "utf8"));
  assert.equal(list.spdxVersion, "SPDX-2.3");
  const ids = new Set(list.packages.map(({ SPDXID }) => SPDXID));
  assert.equal(ids.size, list.packages.length);
  const related = (kind) => list.relationships.filter(({ relationshipType }) => relationshipType === kind)
    .map(({ relatedSpdxElement }) => list.packages.find(({ SPDXID }) => SPDXID === relatedSpdxElement));

  const licences = await readdir(join(folder, "usr/share/quillmark/extension/firefox/libraries/licences"));
  assert.deepEqual(related("CONTAINS").map(({ name }) => `${name.replace("/", "-")}.txt`).sort(), licences.sort());
  const lock = JSON.parse(await readFile(join(root, "package-lock.json"), "utf8")).packages;
  for (const { name, versionInfo, checksums: [{ checksumValue }] } of related("CONTAINS")) {
    const { version, integrity } = lock[`node_modules/${name}`];
    assert.equal(versionInfo, version);
    assert.equal(`sha512-${Buffer.from(checksumValue, "hex").toString("base64")}`, integrity);
  }
  const { stdout } = await run("dpkg-deb", ["--field", await usualPackage(), "Depends"]);
  const depends = [...stdout.toString().matchAll(/(lib[\w.+-]+)/g)].map(([, name]) => name);
  const linked = related("DYNAMIC_LINK").map(({ name }) => name);
  assert.ok(depends.length > 5);
  assert.deepEqual(depends.filter((name) => !linked.includes(name)), []);
});

test("The package has the version of the program", async () => {
  const [, program] = /project\(Quillmark VERSION ([\d.]+)/.exec(await readFile(join(root, "CMakeLists.txt"), "utf8"));
  const [, changelog] = /^quillmark \(([^)]+)\)/.exec(await readFile(join(root, "packaging/debian/changelog"), "utf8"));
  const [, news] = /^## ([\d.]+)/m.exec(await readFile(join(root, "NEWS.md"), "utf8"));
  assert.deepEqual([changelog, news], [program, program]);
});

async function reasonToSkip() {
  if (process.getuid() !== 0) return "needs root";
  const { code } = await runUnchecked("dpkg", ["-s", "quillmark"]);
  return code === 0 ? "Quillmark is installed on this machine, and stays so" : false;
}

/** The path of the package that tools/package makes, once for this file. */
function usualPackage() {
  usual ??= makePackage(join(root, "build/package"));
  return usual;
}

/** The path of a new package in this folder. Lintian's complaints are failures. */
async function makePackage(folder, { umask = "022", env = {} } = {}) {
  const command = `umask ${umask} && exec "$0" "$1"`;
  await run("bash", ["-c", command, join(root, "tools/package"), folder], { env: { ...process.env, ...env }, timeout: 14 * MINUTES });
  return join(folder, (await readdir(folder)).find((name) => /^quillmark_.*\.deb$/.test(name)));
}

/** What on this machine belongs to the package, or lies in folders that it makes. */
async function traces() {
  const { stdout } = await run("find", ["/etc", "/opt", "/usr", "/var/lib/dpkg/info", "-path", root, "-prune", "-o", "(", "-path", "*quillmark*", "-o",
    "-path", "/etc/opt*", "-o", "-path", "*native-messaging-hosts*", ")", "-print"]);
  return stdout.toString().split("\n").sort();
}

/** Does what the recipes say to do in an empty folder, but for installing what is installed. */
async function takeFirstSteps(folder) {
  const blocks = (await blocksOf("docs/recipes/README.md")).filter(({ info }) => info.endsWith(" first-steps"));
  const [steps, login] = blocks.map(({ content }) => content);
  await run("bash", ["-e", "-c", steps.replaceAll(/^npm install .*/gm, "")], { cwd: folder });
  await writeFile(join(folder, "login.test.mjs"), login);
}

/** One signature through the installed launcher, started as a browser does, by a user who has nothing of ours yet. */
async function signsForUser(t, launcher) {
  const home = await world.cleanupOf(t).folder("home");
  const token = await SoftToken.create(home);
  const certificate = await world.certificate();
  await token.addPair(certificate, "a1b2c3");
  await run("chown", ["-R", `${NOBODY}:${NOBODY}`, home]);

  const workingFolder = join(home, ".local/share/quillmark");
  const host = await world.host(t, {
    wrapper: AS_NOBODY, program: launcher, folder: workingFolder,
    env: { ...token.env, XDG_DATA_HOME: "", XDG_RUNTIME_DIR: home },
  });
  const reply = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "a token" });
  assert.equal(reply.status_cd, 1, reply.result);
  await world.judges.rsa(Buffer.from(reply.result, "base64"), Buffer.from("a token"), certificate.pem);
  assert.deepEqual(await host.finish(), NORMAL_END);

  const { uid, mode } = await stat(workingFolder);
  assert.deepEqual([uid, mode & 0o777], [NOBODY, 0o700]);
  assert.match(await host.logText(), /Host Application Started/);
}
