// The Debian package: made by tools/package, and as root installed, used by an ordinary user and in the browsers as they come,
// and purged.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { readdir, readFile, stat } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { GST_TEXT } from "../lib/browser-kit.mjs";
import { AS_NOBODY, chooseAndLogIn, NOBODY, NORMAL_END, run, runUnchecked, SoftToken, World } from "../lib/kit.mjs";
import { product, root } from "../lib/quillmark.mjs";
import { signatureIn } from "./lib/installed-browser.mjs";

const world = World.forThisFile(product);
const MINUTES = 60_000;

const manifests = ["/etc/chromium/native-messaging-hosts", "/etc/opt/chrome/native-messaging-hosts",
  "/etc/opt/edge/native-messaging-hosts", "/usr/lib/mozilla/native-messaging-hosts"].map((folder) => `${folder}/quillmark.host.json`);

test("The package installs, signs for a user, and is purged without a trace", { skip: await reasonToSkip() }, async (t) => {
  const before = await traces();
  const deb = await makePackage();
  t.after(() => runUnchecked("dpkg", ["--purge", "quillmark"])); // after a failure
  await run("apt-get", ["install", "-y", "--no-install-recommends", deb], { timeout: 5 * MINUTES });
  const { stdout: listed } = await run("dpkg", ["-L", "quillmark"]);
  const files = listed.toString().split("\n").filter(Boolean);

  for (const tool of ["quillmark-browsers", "quillmark-doctor", "quillmark-journal", "quillmark-tokens"]) {
    assert.ok(files.includes(`/usr/share/man/man1/${tool}.1.gz`), `${tool} has no manual page`);
    assert.match((await run(tool, ["--help"])).stdout.toString(), /^usage: /i, tool);
  }
  const commands = await Promise.all(manifests.map(async (file) => JSON.parse(await readFile(file)).path));
  assert.deepEqual([...new Set(commands)], ["/usr/lib/quillmark/quillmark-host"]);
  const { stdout: status } = await runUnchecked("quillmark-browsers", ["status", "--system", "--json"]);
  const states = JSON.parse(status).browsers.flatMap(({ system }) => (system ? [system.state] : []));
  assert.deepEqual([...new Set(states)], ["registered"]);

  await signsForUser(t, commands[0]);
  for (const browser of ["chromium", "firefox"]) {
    await t.test(`${browser} has the extension and signs`, async (t) => assert.equal(await signatureIn(browser, t, world), GST_TEXT));
  }

  await run("dpkg", ["--purge", "quillmark"]);
  assert.deepEqual(files.filter((file) => file.includes("quillmark") && existsSync(file)), []);
  assert.deepEqual(await traces(), before);
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

/** The path of the new package. Lintian's complaints are failures. */
async function makePackage() {
  await run(join(root, "tools/package"), [], { timeout: 9 * MINUTES });
  const folder = join(root, "build/package");
  return join(folder, (await readdir(folder)).find((name) => /^quillmark_.*\.deb$/.test(name)));
}

/** What on this machine belongs to the package, or lies in folders that it makes. */
async function traces() {
  const { stdout } = await run("find", ["/etc", "/opt", "/usr", "/var/lib/dpkg/info", "(", "-path", "*quillmark*", "-o",
    "-path", "/etc/opt*", "-o", "-path", "*native-messaging-hosts*", ")"]);
  return stdout.toString().split("\n").sort();
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
