// What `cmake --install` lays out, by which ./install, the Debian package and other packagers go.

import assert from "node:assert/strict";
import { existsSync, lstatSync, readFileSync, readlinkSync } from "node:fs";
import { dirname, join, relative } from "node:path";
import { after, before, test } from "node:test";

import { Cleanup, run } from "../lib/kit.mjs";
import { build, product, root } from "../lib/quillmark.mjs";

const cleanup = new Cleanup();
let installed;
let files;

before(async () => {
  await product.extension.make(join(root, "build/extension"));
  installed = await cleanup.folder("layout");
  await run("cmake", ["--install", build, "--strip", "--prefix", "/usr"], { env: { ...process.env, DESTDIR: installed } });
  const { stdout } = await run("find", [installed, "!", "-type", "d"]);
  files = stdout.toString().split("\n").filter(Boolean).map((file) => relative(installed, file)).sort();
});
after(() => cleanup.run());

const inFolder = (folder) => files.filter((file) => dirname(file) === folder).map((file) => file.slice(folder.length + 1));

test("The program's folder holds the built files and all scripts, without symbols", async () => {
  const { stdout } = await run("find", [join(root, "packaging"), "-maxdepth", "1", "-type", "f", "-printf", "%f\n"]);
  const scripts = stdout.toString().split("\n").filter((name) => name && name !== "pack-extension"); // for administrators
  const folder = "usr/libexec/quillmark";
  assert.deepEqual(inFolder(folder), ["QMChromeExtHost", "QMLogo.png", "QMTokenDriver.so", "quillmark-tokens", ...scripts].sort());
  for (const name of ["QMChromeExtHost", "QMTokenDriver.so", "quillmark-tokens"]) {
    const { stdout: sections } = await run("readelf", ["--section-headers", join(installed, folder, name)]);
    assert.doesNotMatch(sections.toString(), /\.(symtab|debug_info)\b/, name);
  }
});

test("Each command with a manual page is a link to the program's folder", () => {
  const commands = inFolder("usr/bin");
  assert.ok(commands.length > 0);
  assert.deepEqual(commands, inFolder("usr/share/man/man1").map((page) => page.replace(/\.1$/, "")));
  for (const command of commands) {
    assert.equal(readlinkSync(join(installed, "usr/bin", command)), `../libexec/quillmark/${command}`);
  }
});

test("No link leads nowhere, also where documents name each other", () => {
  const links = files.filter((file) => lstatSync(join(installed, file)).isSymbolicLink());
  const targets = files.filter((file) => /^usr\/share\/doc\/.*\.md$/.test(file)).flatMap((file) =>
    [...readFileSync(join(installed, file), "utf8").matchAll(/\]\((?!https?:|mailto:)([^)#\s]+)/g)].map(([, to]) => join(dirname(file), to)));
  assert.ok(links.length > 0 && targets.length > 0);
  assert.deepEqual([...links, ...targets].filter((path) => !existsSync(join(installed, path))), []);
});

test("The page library, its declarations and the example are there, and the extension's libraries once", () => {
  const shared = "usr/share/quillmark";
  assert.deepEqual(inFolder(shared).sort(), ["pack-extension", "quillmark.d.ts", "quillmark.js"]);
  const example = readFileSync(join(installed, shared, "example/index.html"), "utf8");
  const named = [...example.matchAll(/(?:src|href)="([\w.-]+)"/g)].map(([, name]) => name);
  assert.ok(named.length > 0);
  assert.deepEqual(named.filter((name) => !existsSync(join(installed, shared, "example", name))), []);

  const [chromium, firefox] = ["chromium", "firefox"].map((name) => `${shared}/extension/${name}`);
  assert.equal(readlinkSync(join(installed, chromium, "libraries")), "../firefox/libraries");
  assert.ok(existsSync(join(installed, chromium, "manifest.json")));
  assert.ok(existsSync(join(installed, firefox, "manifest.json")));
});

test("install for one user brings a stripped program and the extension, and says what to click", async () => {
  const home = await cleanup.folder("home");
  const { stdout } = await run(product.install, [], { env: { ...process.env, HOME: home, XDG_CONFIG_HOME: "" }, timeout: 300_000 });
  const folder = join(home, ".local/share/quillmark");
  for (const name of ["QMChromeExtHost", "QMTokenDriver.so"]) {
    assert.equal(lstatSync(join(folder, name)).size, lstatSync(join(installed, "usr/libexec/quillmark", name)).size);
  }
  for (const path of ["chromium", "firefox/manifest.json"].map((each) => join(folder, "extension", each))) {
    assert.ok(existsSync(path) && stdout.toString().includes(`type ${path} and press Enter`), path);
  }
  for (const file of ["src/background.js", "_locales/hi/messages.json"]) assert.ok(existsSync(join(folder, "extension/chromium", file)));
  assert.ok(!/\[\d+\/\d+\]|steps/.test(stdout), "no flood of the build's words");
  await run(product.install, ["--uninstall"], { env: { ...process.env, HOME: home, XDG_CONFIG_HOME: "" } });
  assert.ok(!existsSync(folder));
});

test("install for all users puts the extension where Debian's browsers look, and uninstall takes it away", async () => {
  const other = await cleanup.folder("root");
  await run(product.install, ["--system", "--root", other], { timeout: 300_000 });
  const folders = { "usr/share/chromium/extensions/quillmark": "chromium",
    [`usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/${product.extension.ids.firefox}`]: "firefox" };
  for (const [link, browser] of Object.entries(folders)) {
    assert.equal(readlinkSync(join(other, link)), `/usr/share/quillmark/extension/${browser}`);
    assert.ok(existsSync(join(other, "usr/share/quillmark/extension", browser, "src/background.js")));
  }
  await run(product.install, ["--system", "--root", other, "--uninstall"]);
  const { stdout } = await run("find", [other, "!", "-type", "d", "-path", "*quillmark*"]);
  assert.equal(stdout.toString(), "");
});
