// The launcher: where it starts the host, and where it refuses to.

import assert from "node:assert/strict";
import { existsSync, lstatSync, readlinkSync, statSync } from "node:fs";
import { chmod, chown, lchown, mkdir, readdir, readFile, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { AS_NOBODY, NOBODY, run, runUnchecked, SOFTHSM } from "../lib/kit.mjs";
import { forAllUsers, forOneUser, installed, running } from "./lib/launching.mjs";

const started = (folder, computer) => computer.read(join(folder, "started"));

/** What the launcher ends with when it refuses a working folder. */
const REFUSED = 77;

const needsRoot = process.getuid() === 0 ? false : "only root makes folders of another user";

test("Installed for one user, the launcher runs the host in its own folder, wherever it is started", async (t) => {
  const { computer, folder, start } = await forOneUser(t);
  assert.equal((await start("chrome-extension://abc/")).code, 0);
  const seen = await started(folder, computer);
  assert.deepEqual(seen.arguments, ["chrome-extension://abc/"]);
  assert.equal(seen.folder, folder);
});

test("The launcher needs no argument", installed(forOneUser, async ({ computer, folder, start }) => {
  await start();
  assert.deepEqual((await started(folder, computer)).arguments, []);
}));

test("The host's scroll bars are always to be seen, unless the user wishes otherwise", async (t) => {
  const { folder, start } = await running(t, 'echo "${GTK_OVERLAY_SCROLLING-unset}" >scrolling');
  for (const [wishes, seen] of [[["-u", "GTK_OVERLAY_SCROLLING"], "0"], [["GTK_OVERLAY_SCROLLING=1"], "1"], [["GTK_OVERLAY_SCROLLING="], ""]]) {
    await start.as("env", ...wishes);
    assert.equal(await readFile(join(folder, "scrolling"), "utf8"), `${seen}\n`);
  }
});

test("Installed for all users, the launcher gives each user a folder with logo and driver in reach", async (t) => {
  const { computer, start, folder } = await forAllUsers(t);
  assert.equal((await start()).code, 0);
  assert.deepEqual((await started(folder, computer)).files, ["QMLogo.png", "QMTokenDriver.so", "modules.log", "started"]);
  assert.equal(statSync(folder).mode & 0o777, 0o700);
  assert.equal(readlinkSync(join(folder, "QMTokenDriver.so")), join(computer.root, "usr/lib/quillmark/QMTokenDriver.so"));
});

test("Links of an earlier version are renewed", installed(forAllUsers, async ({ start, folder, computer }) => {
  await mkdir(folder, { recursive: true });
  await symlink("/gone/QMLogo.png", join(folder, "QMLogo.png"));
  await start();
  assert.equal(readlinkSync(join(folder, "QMLogo.png")), join(computer.root, "usr/lib/quillmark/QMLogo.png"));
}));

test("Quillmark's own driver, left in the working folder by an installation for one user, gives way to the package's", async (t) => {
  const { start, folder, computer } = await forAllUsers(t);
  await computer.install();
  assert.ok(lstatSync(join(folder, "QMTokenDriver.so")).isFile());
  assert.equal((await start()).code, 0);
  assert.equal(readlinkSync(join(folder, "QMTokenDriver.so")), join(computer.root, "usr/lib/quillmark/QMTokenDriver.so"));
});

test("A token maker's module in the driver's place stays, also one that was linked under that name", async (t) => {
  for (const module of [await readFile(SOFTHSM), "\0QMTokenDriver.so\0the name under which it was linked\0"]) {
    const { start, folder } = await forAllUsers(t);
    await mkdir(folder, { recursive: true });
    await writeFile(join(folder, "QMTokenDriver.so"), module);
    assert.equal((await start()).code, 0);
    assert.deepEqual(await readFile(join(folder, "QMTokenDriver.so")), Buffer.from(module));
  }
  const { start, folder } = await forAllUsers(t);
  await mkdir(folder, { recursive: true });
  await symlink(SOFTHSM, join(folder, "QMTokenDriver.so"));
  await start();
  assert.equal(readlinkSync(join(folder, "QMTokenDriver.so")), SOFTHSM);
});

test("Asked for the folder only, the launcher says it, makes nothing, and starts nothing", async (t) => {
  const { computer, folder, start } = await forAllUsers(t);
  assert.deepEqual(await start("--check-folder"), { code: 0, out: `${folder}\n`, err: "" });
  assert.deepEqual(await readdir(computer.home), []);
  await makeFolder(folder);
  await chmod(folder, 0o777);
  const { code, out, err } = await start("--check-folder");
  assert.deepEqual([code, out], [REFUSED, `${folder}\n`]);
  assert.match(err, /can be changed by others/);
});

test("For a trial the host gets what lies in the working folder, and writes nothing there", installed(forOneUser, async (setting) => {
  const { computer, folder, start } = setting;
  await computer.write(join(folder, "QMHostSettings.json"), {});
  await writeFile(join(folder, "QMSignerExtHostLog.txt"), "a line\n");
  const scratch = join(computer.folder, "scratch");
  await mkdir(scratch);
  assert.equal((await start("--try", scratch, "chrome-extension://abc/")).code, 0);
  const seen = await started(scratch, computer);
  assert.deepEqual([seen.folder, seen.arguments], [scratch, ["chrome-extension://abc/"]]);
  assert.ok(["QMHostSettings.json", "QMLogo.png", "QMTokenDriver.so"].every((name) => seen.files.includes(name)));
  assert.ok(!seen.files.includes("QMSignerExtHostLog.txt"));
  assert.ok(!existsSync(join(folder, "started")));
}));

// ---- working folders that are not the user's alone

/** Starts, and holds that the host did not run anywhere, that the words name `culprit`, and that they are one line. */
async function refuses({ computer, start }, culprit) {
  const { code, err } = await start();
  const { stdout: files } = await run("find", [computer.folder, "-name", "started"]);
  assert.equal(files.toString(), "", "the host was started");
  assert.equal(code, REFUSED, err);
  assert.match(err, /^quillmark-host: .+\n$/);
  assert.ok(err.includes(culprit), `${err} names ${culprit}`);
}

const share = (computer) => join(computer.home, ".local/share");
const makeFolder = (folder) => mkdir(folder, { recursive: true, mode: 0o700 });

test("A working folder that others may write to is refused, by its mode of others and of a group", async (t) => {
  for (const mode of [0o777, 0o702, 0o1777]) {
    const setting = await forAllUsers(t);
    await makeFolder(setting.folder);
    await chmod(setting.folder, mode);
    await refuses(setting, setting.folder);
  }
});

test("Installed for one user, a program folder that others may write to is refused", installed(forOneUser, async (setting) => {
  await chmod(setting.folder, 0o777);
  await refuses(setting, setting.folder);
}));

test("A folder above that others may write to is refused, for they could exchange the working folder", async (t) => {
  for (const above of [share, (computer) => computer.home, (computer) => computer.folder]) {
    const setting = await forAllUsers(t);
    await makeFolder(setting.folder);
    await chmod(above(setting.computer), 0o777);
    await refuses(setting, above(setting.computer));
  }
});

test("A folder above in which each may remove only what is his own is no danger", installed(forAllUsers, async ({ computer, start, folder }) => {
  await makeFolder(folder);
  await chmod(share(computer), 0o1777);
  assert.equal((await start()).code, 0);
}));

test("A working folder of another user is refused", { skip: needsRoot }, installed(forAllUsers, async (setting) => {
  await makeFolder(setting.folder);
  await chown(setting.folder, NOBODY, NOBODY);
  await refuses(setting, setting.folder);
}));

test("A working folder of root's is not the user's own", { skip: needsRoot }, installed(forAllUsers, async ({ computer, folder, start }) => {
  await makeFolder(folder);
  for (const above of [computer.folder, computer.home, join(computer.home, ".local"), share(computer), folder]) await chmod(above, 0o755);
  const asAnother = () => start.as(...AS_NOBODY);
  await refuses({ computer, start: asAnother }, `${folder} is not your own`);
}));

test("A working folder that is open to others as soon as it is made is refused", installed(forAllUsers, async (setting, t) => {
  await makeFolder(share(setting.computer));
  // The access control list that new folders get here: read, write and search for the user, the group and others.
  const acl = `struct.pack("<I" + "HHI" * 3, 2, 1, 7, 2**32 - 1, 4, 7, 2**32 - 1, 32, 7, 2**32 - 1)`;
  const set = `import os, struct, sys; os.setxattr(sys.argv[1], "system.posix_acl_default", ${acl})`;
  const { code, stderr } = await runUnchecked("/usr/bin/python3", ["-c", set, share(setting.computer)]);
  if (stderr.includes("not supported")) return t.skip("no access control lists on this file system");
  assert.equal(code, 0, stderr);
  await refuses(setting, `${setting.folder} can be changed by others`);
}));

test("A data folder that another user has made is refused, and nothing is put into it", { skip: needsRoot }, async (t) => {
  for (const mode of [0o700, 0o755, 0o777, 0o1777]) {
    const setting = await forAllUsers(t);
    const data = join(setting.computer.folder, "data");
    await makeFolder(data);
    await chmod(data, mode);
    await chown(data, NOBODY, NOBODY);
    setting.computer.more = { XDG_DATA_HOME: data };
    await refuses(setting, data);
    assert.deepEqual(await readdir(data), []);
  }
});

test("A folder that was made for the user in another user's folder is refused", { skip: needsRoot }, installed(forAllUsers, async (setting) => {
  const data = join(setting.computer.folder, "data");
  await makeFolder(join(data, "quillmark"));
  await chown(data, NOBODY, NOBODY);
  setting.computer.more = { XDG_DATA_HOME: `${data}/quillmark/..` };
  await refuses(setting, data);
}));

test("A home of another user is refused, and so is one below another user's folder", { skip: needsRoot }, async (t) => {
  for (const above of [(computer) => computer.home, (computer) => computer.folder]) {
    const setting = await forAllUsers(t);
    await chown(above(setting.computer), NOBODY, NOBODY);
    await refuses(setting, above(setting.computer));
    assert.ok(!existsSync(join(setting.computer.home, ".local")));
  }
});

test("Another user's link to a folder of the user's own is refused", { skip: needsRoot }, installed(forAllUsers, async (setting) => {
  const { computer, folder } = setting;
  await makeFolder(join(computer.home, "downloads"));
  await makeFolder(share(computer));
  await symlink(join(computer.home, "downloads"), folder);
  await lchown(folder, NOBODY, NOBODY);
  await refuses(setting, folder);
}));

test("A link that leads through another user's folder is refused, wherever it ends", { skip: needsRoot }, async (t) => {
  for (const target of ["..", "../foreign/inside", "../foreign/back"]) {
    const setting = await forAllUsers(t);
    const { computer } = setting;
    const foreign = join(computer.folder, "foreign");
    await makeFolder(join(foreign, "inside"));
    await makeFolder(join(computer.home, "mine"));
    await symlink(join("..", "home", "mine"), join(foreign, "back"));
    await chown(foreign, NOBODY, NOBODY);
    await symlink(`../foreign/${target}`, join(computer.home, "data"));
    computer.more = { XDG_DATA_HOME: join(computer.home, "data") };
    await refuses(setting, "/foreign belongs to another user");
  }
});

test("A link of the user's own to a folder of the user's own is followed", installed(forAllUsers, async ({ computer, start }) => {
  const data = join(computer.home, "elsewhere");
  await makeFolder(data);
  await mkdir(join(computer.home, ".local"));
  await symlink("../elsewhere", share(computer));
  assert.equal((await start()).code, 0);
  assert.equal((await started(join(data, "quillmark"), computer)).folder, join(data, "quillmark"));
}));

test("A link that leads nowhere, or in a circle, is refused", async (t) => {
  for (const target of ["/gone", "share"]) {
    const setting = await forAllUsers(t);
    await mkdir(join(setting.computer.home, ".local"));
    await symlink(target, share(setting.computer));
    await refuses(setting, `${share(setting.computer)} leads nowhere`);
  }
});

test("A group's right to write is refused, but that of the user's private group in folders above", { skip: needsRoot }, async (t) => {
  const setting = await forAllUsers(t);
  await makeFolder(setting.folder);
  await chmod(share(setting.computer), 0o775);
  assert.equal((await setting.start()).code, 0, "root's group is root's alone");
  const { computer, folder, start } = await forAllUsers(t);
  await makeFolder(folder);
  await chmod(share(computer), 0o775);
  await chown(share(computer), 0, NOBODY);
  await refuses({ computer, start }, share(computer));
});

test("A private group with another member, or an access control list, is none", { skip: needsRoot }, async (t) => {
  for (const [command, says] of [["getent", "root:x:0:asha,ravi"], ["ls", "drwxrwxr-x+ 3 root root 60 Jan 1 00:00 share"]]) {
    const setting = await forAllUsers(t);
    const { computer, folder } = setting;
    await makeFolder(folder);
    await chmod(share(computer), 0o775);
    const commands = join(computer.folder, "commands");
    await computer.write(join(commands, command), `#!/bin/sh\necho "${says}"\n`);
    await chmod(join(commands, command), 0o755);
    computer.more = { PATH: `${commands}:${process.env.PATH}` };
    await refuses(setting, share(computer));
  }
});

test("A data folder that is not absolute is as if it were not set", installed(forAllUsers, async ({ computer, start, folder }) => {
  computer.more = { XDG_DATA_HOME: "data" };
  assert.equal((await start()).code, 0);
  assert.equal((await started(folder, computer)).folder, folder);
}));

test("Without a home that can be a folder the launcher says so", async (t) => {
  for (const HOME of [undefined, "", "home"]) {
    const setting = await forAllUsers(t);
    setting.computer.more = { HOME };
    await refuses(setting, "HOME");
  }
});
