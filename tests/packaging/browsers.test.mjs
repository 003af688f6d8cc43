// Registering with the browsers that are there, and nothing else.

import assert from "node:assert/strict";
import { existsSync, lstatSync } from "node:fs";
import { mkdir, readdir, readFile, rename, rm, symlink } from "node:fs/promises";
import { dirname, join } from "node:path";
import { test } from "node:test";

import { registration } from "../lib/quillmark.mjs";
import { Computer } from "./lib/computer.mjs";

/** The body of a test on a computer with these browsers, where Quillmark is laid out; the last argument is the rest of it. */
function withBrowsers(...browsers) {
  const body = browsers.pop();
  return async (t) => {
    const computer = await Computer.make(t, { browsers });
    await computer.layOut();
    await body(computer);
  };
}

test("register writes a manifest for each browser that is there, and says so", withBrowsers("chromium", "firefox-esr", async (computer) => {
  const { code, out } = await computer.tool("quillmark-browsers", "register");
  assert.equal(code, 0);
  assert.match(out, /^Chromium: registered, in .*\nFirefox: registered, in .*\n$/);
  const common = {
    name: "quillmark.host", description: registration.description, type: "stdio",
    path: join(computer.installed, "quillmark-host"),
  };
  assert.deepEqual(await computer.read(computer.userManifest("chromium")), {
    ...common, allowed_origins: ["chrome-extension://benpbclnimankdbnpnbfgmaldnhnimin/"],
  });
  assert.deepEqual(await computer.read(computer.userManifest("firefox")), {
    ...common, allowed_extensions: ["extension@quillmark.example"],
  });
  assert.ok(!existsSync(computer.userManifest("google-chrome")));
}));

test("The doctor's program is registered beside the one that signs, and a registration without it is renewed", withBrowsers("chromium", async (computer) => {
  await computer.tool("quillmark-browsers", "register");
  const file = computer.userManifest("chromium").replace("quillmark.host", "quillmark.doctor");
  const { path, allowed_origins: origins } = await computer.read(file);
  assert.equal(path, join(computer.installed, "quillmark-doctor-host"));
  assert.deepEqual(origins, ["chrome-extension://benpbclnimankdbnpnbfgmaldnhnimin/"]);
  await rm(file);
  assert.match((await computer.tool("quillmark-browsers", "status")).out, /^Chromium: stale for this user /m);
  assert.match((await computer.tool("quillmark-browsers", "register")).out, /^Chromium: registration renewed, in /);
  assert.equal((await computer.read(file)).path, path);
  await computer.write(file, { name: "quillmark.doctor", description: "somebody else's", path: "/elsewhere" });
  const { code, out } = await computer.tool("quillmark-browsers", "register");
  assert.equal(code, 1);
  assert.match(out, /left alone, .*quillmark\.doctor\.json was not written by this tool/);
  assert.equal((await computer.read(file)).path, "/elsewhere");
}));

test("A browser is also there when the user has settings of it", withBrowsers(async (computer) => {
  for (const folder of ["google-chrome-beta", "BraveSoftware/Brave-Browser"]) {
    await mkdir(join(computer.home, ".config", folder), { recursive: true });
  }
  const { code, out } = await computer.tool("quillmark-browsers", "register");
  assert.equal(code, 0);
  assert.match(out, /^Google Chrome Beta: registered, in .*\nBrave: registered, in .*\n$/);
}));

test("Firefox whose profiles are below ~/.config/mozilla is there, and is registered where it looks, below ~/.mozilla",
  withBrowsers(async (computer) => {
    await mkdir(join(computer.home, ".config/mozilla/firefox"), { recursive: true });
    assert.match((await computer.tool("quillmark-browsers", "register")).out, /^Firefox: registered, in .*\n$/);
    assert.ok(existsSync(computer.userManifest("firefox")));
    assert.ok(!existsSync(join(computer.home, ".config/mozilla/native-messaging-hosts")));
  }));

test("Browsers made of Firefox or Chromium are registered where they look, those that share a folder once",
  withBrowsers("librewolf", "waterfox", "zen", "floorp", "ungoogled-chromium", "thorium-browser", async (computer) => {
    const { code, out } = await computer.tool("quillmark-browsers", "register");
    assert.equal(code, 0);
    assert.match(out, /^(ungoogled Chromium|Thorium|LibreWolf|Waterfox|Zen): registered, in [^]*$/);
    assert.equal(out.split("\n").length, 6, "Floorp shares Zen's");
    for (const folder of [
      ".librewolf/native-messaging-hosts", ".waterfox/native-messaging-hosts", ".mozilla/native-messaging-hosts",
      ".config/chromium/NativeMessagingHosts", ".config/thorium/NativeMessagingHosts",
    ]) {
      assert.ok(existsSync(join(computer.home, folder, `${registration.name}.json`)), folder);
    }
    const { browsers } = JSON.parse((await computer.tool("quillmark-browsers", "status", "--json")).out);
    const there = browsers.filter((each) => each.there).map(({ browser }) => browser);
    assert.deepEqual(there, ["ungoogled-chromium", "thorium", "librewolf", "waterfox", "zen", "floorp"]);
  }));

test("Without any browser register says so and fails", withBrowsers(async (computer) => {
  const { code, err } = await computer.tool("quillmark-browsers", "register");
  assert.equal(code, 1);
  assert.match(err, /No browser to register with is there/);
}));

test("--browser names the browsers that count", withBrowsers("chromium", "firefox", "vivaldi", async (computer) => {
  await computer.tool("quillmark-browsers", "register", "--browser", "firefox", "--browser", "vivaldi");
  assert.ok(existsSync(computer.userManifest("firefox")));
  assert.ok(existsSync(computer.userManifest("vivaldi")));
  assert.ok(!existsSync(computer.userManifest("chromium")));
  assert.equal((await computer.tool("quillmark-browsers", "register", "--browser", "netscape")).code, 2);
}));

test("A second register changes nothing, and renews what is of another place", withBrowsers("chromium", async (computer) => {
  await computer.tool("quillmark-browsers", "register");
  const again = await computer.tool("quillmark-browsers", "register");
  assert.match(again.out, /was registered already/);
  const manifest = await computer.read(computer.userManifest("chromium"));
  await computer.changeManifest("chromium", { path: "/gone/quillmark-host" });
  assert.match((await computer.tool("quillmark-browsers", "status")).out, /Chromium: stale for this user/);
  assert.match((await computer.tool("quillmark-browsers", "register")).out, /registration renewed/);
  assert.deepEqual(await computer.read(computer.userManifest("chromium")), manifest);
}));

test("What this tool has not written is neither overwritten nor removed", withBrowsers("chromium", async (computer) => {
  const file = computer.userManifest("chromium");
  const foreign = [
    { name: registration.name, description: "somebody else's", path: "/elsewhere", type: "stdio" },
    "no JSON at all",
    [],
  ];
  for (const content of foreign) {
    await computer.write(file, content);
    const before = await readFile(file, "utf8");
    for (const action of ["register", "unregister"]) {
      const { code, out } = await computer.tool("quillmark-browsers", action);
      assert.equal(code, 1);
      assert.match(out, /left alone/);
      assert.equal(await readFile(file, "utf8"), before);
    }
  }
}));

test("A link in the manifest's place is not followed", withBrowsers("chromium", async (computer) => {
  const file = computer.userManifest("chromium");
  const target = join(computer.folder, "target.json");
  await mkdir(join(file, ".."), { recursive: true });
  await symlink(target, file);
  assert.equal((await computer.tool("quillmark-browsers", "register")).code, 1);
  assert.ok(!existsSync(target));
  assert.ok(lstatSync(file).isSymbolicLink());
}));

test("A link into the program's own folder is the Debian package's: a registration, and not removed", withBrowsers("chromium", async (computer) => {
  const file = computer.userManifest("chromium");
  await computer.tool("quillmark-browsers", "register");
  const kept = join(computer.installed, "manifests/chromium");
  await mkdir(dirname(kept));
  await rename(dirname(file), kept);
  await mkdir(dirname(file));
  for (const name of await readdir(kept)) await symlink(join(kept, name), join(dirname(file), name));
  assert.match((await computer.tool("quillmark-browsers", "status")).out, /^Chromium: registered for this user /m);
  assert.match((await computer.tool("quillmark-browsers", "register")).out, /was registered already/);
  const { code, out } = await computer.tool("quillmark-browsers", "unregister");
  assert.equal(code, 0);
  assert.match(out, /left alone, .* goes with the Debian package/);
  assert.ok(lstatSync(file).isSymbolicLink());
}));

test("--all registers also with browsers that are not there", withBrowsers(async (computer) => {
  assert.equal((await computer.tool("quillmark-browsers", "register", "--system", "--all")).code, 0);
  for (const folder of ["etc/chromium", "etc/opt/chrome", "etc/opt/edge", "usr/lib/mozilla"]) {
    assert.ok(existsSync(computer.systemManifest(`${folder}/native-messaging-hosts`)), folder);
  }
}));

test("unregister removes what was written, also of a browser that is gone, and its empty folder",
  withBrowsers("chromium", "firefox", async (computer) => {
    await computer.tool("quillmark-browsers", "register");
    const other = join(computer.userManifest("firefox"), "../other.json");
    await computer.write(other, {});
    const { code, out } = await computer.tool("quillmark-browsers", "unregister");
    assert.equal(code, 0);
    assert.match(out, /Chromium: no longer registered/);
    assert.ok(!existsSync(join(computer.userManifest("chromium"), "../..")), "it would pass for a browser");
    assert.ok(existsSync(other), "another program's registration stays");
  }));

test("--system writes once for browsers that share a folder, and says where there is none",
  withBrowsers("google-chrome", "brave-browser", "firefox", "opera", async (computer) => {
    const { code, out } = await computer.tool("quillmark-browsers", "register", "--system");
    assert.equal(code, 0);
    assert.match(out, /^Google Chrome: registered, in .*\nOpera: has no settled folder .*\nFirefox: registered, in .*\n$/);
    assert.ok(existsSync(computer.systemManifest("etc/opt/chrome/native-messaging-hosts")));
    assert.ok(existsSync(computer.systemManifest("usr/lib/mozilla/native-messaging-hosts")));
    assert.ok(!existsSync(computer.systemManifest("etc/chromium/native-messaging-hosts")));
    assert.ok(!existsSync(computer.userManifest("firefox")));
  }));

test("--system with only a browser that has no folder for all users registers nothing, and fails",
  withBrowsers("vivaldi", "firefox", async (computer) => {
    const { code, out, err } = await computer.tool("quillmark-browsers", "register", "--system", "--browser", "vivaldi");
    assert.equal(code, 1);
    assert.match(out, /^Vivaldi: has no settled folder for all users/);
    assert.match(err, /No browser to register with is there/);
  }));

test("status tells every state, in words and as JSON", withBrowsers("chromium", "firefox", async (computer) => {
  assert.equal((await computer.tool("quillmark-browsers", "status")).code, 1);
  await computer.tool("quillmark-browsers", "register", "--browser", "firefox");
  await computer.write(computer.userManifest("chromium"), "{");
  const { code, out } = await computer.tool("quillmark-browsers", "status");
  assert.equal(code, 0);
  assert.match(out, /^Chromium: foreign for this user /m);
  assert.match(out, /^Firefox: registered for this user /m);
  assert.match(out, /^Opera: not there$/m);
  const { browsers } = JSON.parse((await computer.tool("quillmark-browsers", "status", "--json")).out);
  const firefox = browsers.find(({ browser }) => browser === "firefox");
  assert.equal(firefox.user.state, "registered");
  assert.equal(firefox.system.state, "missing");
}));

test("A folder that cannot be written is one clear line", withBrowsers("chromium", async (computer) => {
  await computer.write(join(computer.home, ".config/chromium"), "a file in the folder's place");
  const { code, err } = await computer.tool("quillmark-browsers", "register");
  assert.equal(code, 1);
  assert.equal(err.trim().split("\n").length, 1, err);
}));
