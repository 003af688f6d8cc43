// What the doctor finds, each with a computer that has this one fault.

import assert from "node:assert/strict";
import { chmod, copyFile, mkdir, rm } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { bin, product, registration, root } from "../lib/quillmark.mjs";
import { run, runUnchecked, SOFTHSM, World } from "../lib/kit.mjs";
import { Computer, ECHOING, GOOD_TOKENS } from "./lib/computer.mjs";
import { assertProblem, examine, healthy, onHealthy, onlyProblem, problemsOf, runs } from "./lib/health.mjs";

/** What quillmark-tokens says where p11-kit knows no module for tokens. */
const NO_MODULE = { canSign: 0, modules: [{ name: "p11-kit-trust", used: true, slots: [] }] };

for (const [rule, browsers, fault, problem] of [
  ["A browser without a registration cannot sign, and another can", ["chromium", "firefox-esr"],
    (computer) => rm(computer.userManifest("firefox")),
    { verdict: "can", text: /Firefox: the signing program is not registered/, command: "quillmark-browsers register --browser firefox" }],
  ["A user's manifest that hides the system's is found", ["chromium"], async (computer) => {
    await computer.tool("quillmark-browsers", "register", "--system");
    await computer.changeManifest("chromium", { path: "/gone/quillmark-host" });
  }, { text: /hides the registration for all users/, command: "quillmark-browsers unregister --browser chromium" }],
  ["Somebody else's manifest in the place is found", ["firefox"],
    (computer) => computer.write(computer.userManifest("firefox"), { name: "quillmark.host", description: "x" }),
    { text: /is not Quillmark's/ }],
  ["A snap behind a script of the same name is a snap", ["chromium"],
    (computer) => computer.addBrowser("chromium", "snap/bin"),
    { text: /Chromium: is a snap, which cannot start programs/ }],
  ["A working folder that others can change is a failure", ["chromium", "firefox-esr"],
    (computer) => chmod(computer.installed, 0o777),
    { verdict: "cannot", text: /can be changed by others/ }],
  ["A driver that cannot be loaded is a failure, with the loader's reason", ["chromium", "firefox-esr"],
    (computer) => computer.write(join(computer.installed, "QMTokenDriver.so"), "no library"),
    { text: /cannot be loaded: .*(too short|invalid ELF header)/ }],
  ["A missing pcscd is a note", ["chromium", "firefox-esr"],
    (computer) => rm(join(computer.root, "run/pcscd/pcscd.comm")),
    { verdict: "can", text: /pcscd/ }],
]) {
  test(rule, onHealthy({ browsers }, async (computer) => {
    await fault(computer);
    await assertProblem(computer, problem);
  }));
}

test("All is well: status 0, and no remedy is needed", onHealthy(async (computer) => {
  const { verdict, problems } = await examine(computer);
  assert.equal(verdict, "can");
  assert.deepEqual(problems.map(({ text }) => text), ['CN=Old on "Token" cannot sign: expired']);
  const { out } = await computer.tool("quillmark-doctor");
  assert.match(out, /A signature can be made, as far as can be seen\.\n$/);
}));

test("The words name each fault with its remedy", onHealthy(async (computer) => {
  computer.more = {};
  const { code, out } = await computer.tool("quillmark-doctor");
  assert.equal(code, 3);
  assert.match(out, /   \? There is no display.*, so it is not started here\n +-> Run this in your desktop session\n/);
  assert.match(out, /\nWhether a signature can be made cannot be told, for what is marked with \?\.\n$/);
  await rm(computer.userManifest("firefox"));
  const both = (await computer.tool("quillmark-doctor")).out;
  assert.match(both, /^FAIL Firefox: the signing program is not registered\n +-> quillmark-browsers register --browser firefox\n/m);
  assert.match(both, /\nChromium: whether a signature .*\nFirefox: no signature can be made until what FAILs above is put right\.\n$/);
}));

test("--browser asks for one browser, whose verdict it is", onHealthy(async (computer) => {
  await rm(computer.userManifest("firefox"));
  assert.deepEqual((await examine(computer)).browsers, { Chromium: "can", Firefox: "cannot" });
  assert.deepEqual((await examine(computer, "--browser", "firefox")).browsers, { Firefox: "cannot" });
  assert.deepEqual((await examine(computer, "--browser", "chromium")).browsers, { Chromium: "can" });
  assert.match((await examine(computer, "--browser", "opera")).problems[0].text, /^opera is not there$/);
  const { code, err } = await computer.tool("quillmark-doctor", "--browser", "netscape");
  assert.equal(code, 2);
  assert.match(err, /--browser is one of brave, chrome, /);
}));

test("No browser with a registration, and no browser at all, are failures", onHealthy({ browsers: ["chromium"] }, async (computer, t) => {
  await rm(computer.userManifest("chromium"));
  assert.equal((await onlyProblem(computer)).verdict, "cannot");
  const bare = await healthy(t, { browsers: [] });
  assert.match((await onlyProblem(bare)).text, /No browser/);
}));

test("A manifest that names a program that is gone, or may not be executed, is found", onHealthy({ browsers: ["chromium"] }, async (computer) => {
  await computer.changeManifest("chromium", { path: "/gone/quillmark-host" });
  assert.match((await onlyProblem(computer)).text, /names \/gone\/quillmark-host, which is not there/);

  await computer.tool("quillmark-browsers", "register");
  await chmod(join(computer.installed, "quillmark-host"), 0o644);
  const { text, command } = await onlyProblem(computer);
  assert.match(text, /may not be executed/);
  assert.match(command, /^chmod \+x /);
}));

test("A folder of its own is no fault where programs for all users are found, nor in another program", onHealthy(async (computer) => {
  await runs(computer, "chromedriver");
  assert.deepEqual(await problemsOf(computer), []);
  await runs(computer, "chromium");
  assert.equal((await onlyProblem(computer)).verdict, "can");
  await computer.tool("quillmark-browsers", "unregister");
  await computer.tool("quillmark-browsers", "register", "--system");
  assert.deepEqual(await problemsOf(computer), []);
}));

test("What an installation for one user leaves beside the package is found by both doctors, and hides nothing once it is gone", async (t) => {
  const computer = await Computer.make(t, { browsers: ["chromium"], more: { DISPLAY: ":stand-in" } });
  computer.more.PATH = `${join(computer.root, "usr/bin")}:${process.env.PATH}`;
  await computer.install();
  await computer.install("--system", "--root", computer.root);
  const own = computer.userFolder;
  const packaged = join(computer.root, "usr/lib/quillmark");
  const texts = async (installed) => {
    computer.installed = installed;
    return (await examine(computer)).problems.map(({ text }) => text).join("\n");
  };
  for (const installed of [own, packaged]) {
    assert.match(await texts(installed), /Quillmark is installed twice, for you alone in .* and for all users in /, installed);
  }
  assert.match(await texts(packaged), /Chromium: .*is of another version or place, and hides the registration for all users/);
  await computer.tool("quillmark-browsers", "unregister");
  assert.doesNotMatch(await texts(packaged), /hides the registration/);
  await computer.install("--uninstall");
  assert.doesNotMatch(await texts(packaged), /installed twice/);
});

test("A manifest whose path is no text is found, and stops nothing", onHealthy({ browsers: ["chromium"] }, async (computer) => {
  for (const path of [["/gone"], { path: "/gone" }, 1, null, "a\0b"]) {
    await computer.changeManifest("chromium", { path });
    assert.match((await onlyProblem(computer)).text, /names .*, which is not there/);
  }
}));

test("Policies that forbid the host are found, and those that allow it are not", onHealthy({ browsers: ["chromium"] }, async (computer) => {
  const policy = join(computer.root, "etc/chromium/policies/managed/company.json");
  await computer.write(policy, { NativeMessagingBlocklist: ["*"] });
  assert.match((await onlyProblem(computer)).text, /company\.json forbids the signing program/);
  await computer.write(policy, { NativeMessagingBlocklist: ["*"], NativeMessagingAllowlist: ["quillmark.host"] });
  assert.equal((await examine(computer)).verdict, "can");
  await computer.write(policy, { NativeMessagingUserLevelHosts: false });
  await assertProblem(computer, { text: /forbids programs of single users/, command: "sudo ./install --system" });
}));

test("The files of a policy folder count together, the last one for what several say, and nothing in them stops the doctor", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  const policy = (name, content) => computer.write(join(computer.root, "etc/chromium/policies/managed", name), content);
  await policy("1-block.json", { NativeMessagingBlocklist: ["*"], NativeMessagingUserLevelHosts: false });
  await policy("2-allow.json", { NativeMessagingAllowlist: ["quillmark.host"], NativeMessagingUserLevelHosts: true });
  assert.equal((await examine(computer)).problems.length, 1, "the expired certificate");
  await policy("3-list.json", ["NativeMessagingBlocklist"]);
  assert.match((await onlyProblem(computer)).text, /3-list\.json: its content is no JSON object/);
  await policy("3-list.json", {});
  await policy("4-allow-another.json", { NativeMessagingAllowlist: ["another.host"] });
  assert.match((await onlyProblem(computer)).text, /1-block\.json forbids the signing program/);
  await policy("4-allow-another.json", { NativeMessagingAllowlist: null });
  assert.match((await onlyProblem(computer)).text, /1-block\.json forbids the signing program/);
});

test("A working folder in whose place others can put another is a failure, in the launcher's words", onHealthy(async (computer) => {
  await chmod(computer.home, 0o777);
  const { verdict, text } = await onlyProblem(computer);
  assert.equal(verdict, "cannot");
  assert.equal(text, `quillmark-host: the signing program is not started: ${computer.home} can be changed by others, ` +
    `who could exchange what lies in it (chmod go-w '${computer.home}')`);
}));

test("Installed for all users, the doctor looks where the launcher has put the user's working folder", async (t) => {
  const computer = await Computer.make(t);
  await computer.install("--system", "--root", computer.root);
  computer.installed = join(computer.root, "usr/lib/quillmark");
  computer.more = { DISPLAY: ":stand-in", XDG_DATA_HOME: join(computer.folder, "data") };
  await computer.tool("quillmark-host");
  await computer.write(join(computer.folder, "data/quillmark/QMHostSettings.json"), { TokenDriverFullPath: "/gone/module.so" });
  const texts = (await examine(computer)).findings.map(({ text }) => text);
  assert.ok(texts.includes(`The working folder is ${computer.folder}/data/quillmark`), texts.join("\n"));
  assert.ok(texts.includes("The token driver /gone/module.so is not there"), texts.join("\n"));
});

test("Settings that are no JSON are noted; settings that name a missing module are a failure", onHealthy(async (computer) => {
  const settings = join(computer.installed, "QMHostSettings.json");
  await computer.write(settings, "{ nothing");
  await assertProblem(computer, { verdict: "can", text: /is no JSON object/ });
  await computer.write(settings, { TokenDriverFullPath: "/gone/module.so" });
  await assertProblem(computer, { verdict: "cannot", text: /\/gone\/module\.so is not there/ });
}));

test("Of a token maker's module in the driver's place the tokens cannot be told, and those of p11-kit's modules are notes", async (t) => {
  for (const place of ["settings", "driver"]) {
    const computer = await healthy(t, { tokens: NO_MODULE });
    assert.equal((await examine(computer)).verdict, "cannot", "through Quillmark's own driver");
    const settings = join(computer.installed, "QMHostSettings.json");
    if (place === "settings") await computer.write(settings, { TokenDriverFullPath: SOFTHSM });
    else await copyFile(SOFTHSM, join(computer.installed, "QMTokenDriver.so"));
    const { verdict, problems } = await examine(computer);
    assert.equal(verdict, "unknown", JSON.stringify(problems));
    const notes = problems.map(({ text }) => text).join("\n");
    assert.match(notes, /module of a token's maker.* cannot be looked at/);
    assert.match(notes, /p11-kit knows no module for tokens/);
  }
});

test("No token, no certificate that can sign, and a listing that fails are failures", async (t) => {
  const listings = [
    [{ canSign: 0, modules: [{ name: "softhsm2", used: true, slots: [] }] }, /No token that can sign/],
    [{ ...GOOD_TOKENS, canSign: 0 }, /No certificate can sign/],
    [NO_MODULE, /p11-kit knows no module/],
  ];
  for (const [tokens, words] of listings) {
    const { verdict, problems } = await examine(await healthy(t, { tokens }));
    assert.equal(verdict, "cannot");
    assert.ok(problems.some(({ level, text }) => level === "failure" && words.test(text)), JSON.stringify(problems));
  }
  const computer = await healthy(t);
  await rm(join(computer.installed, "quillmark-tokens"));
  assert.match((await onlyProblem(computer)).text, /The tokens could not be listed/);
});

test("What the host has written into its log is told, where it does not answer", async (t) => {
  for (const [command, end] of [["", /with status 3$/], ["echo a line >QMSignerExtHostLog.txt", /with status 3; its log ends with "a line"$/]]) {
    const computer = await healthy(t, { browsers: ["chromium"], program: `#!/bin/sh\n${command}\nexit 3\n` });
    await assertProblem(computer, { text: end, command: "./install" });
  }
});

test("What modules wrote to stderr is told by its last lines and by where it is, and keeps nobody from signing", async (t) => {
  const computer = await healthy(t, { browsers: ["chromium"] });
  const noise = async () => (await examine(computer)).findings.filter(({ check }) => check === "modules");
  assert.deepEqual(await noise(), []);
  const lines = Array.from({ length: 9_000 }, (_, i) => `line ${i}`);
  await computer.write(join(computer.installed, "modules.log"), [...lines, "", "a \x1b[31mred \xff", "x".repeat(1_000), ""].join("\n"));
  const [{ level, text }] = await noise();
  assert.equal(level, "ok");
  assert.ok(text.includes(join(computer.installed, "modules.log")));
  assert.match(text, /: "line 8999", "a \x1b\[31mred .", "x{200}"$/);
  assert.match((await computer.tool("quillmark-doctor")).out, /"a <U\+001B>\[31mred/);
});

for (const [what, program, words] of [
  ["ends at once", "#!/bin/sh\nexit 3\n", /ends without an answer, with status 3/],
  ["answers something else", "#!/bin/sh\nprintf '\\002\\000\\000\\000{}'\n", /answers something else/],
  ["is no program", "no program", /ends without an answer|cannot be started/],
]) {
  test(`A program that ${what} is a failure`, async (t) => {
    const { verdict, problems } = await examine(await healthy(t, { browsers: ["chromium"], program }));
    assert.equal(verdict, "cannot");
    assert.ok(problems.some(({ text }) => words.test(text)), JSON.stringify(problems));
  });
}

const TELLING = ECHOING.replace('open("started"', 'open(os.environ["HOME"] + "/started"');

test("The host is started as each browser would start it", onHealthy({ browsers: ["firefox"], program: TELLING }, async (computer) => {
  await examine(computer);
  const { arguments: given, folder } = await computer.read(join(computer.home, "started"));
  assert.deepEqual(given, [computer.userManifest("firefox"), "extension@quillmark.example"]);
  assert.match(folder, /\/quillmark-/, "in a folder that goes with the trial");
}));

/** Each file, folder and link below a folder with its size and time of change, but for those whose path matches `except`. */
async function treeOf(folder, except = /(?!)/) {
  const { stdout } = await run("find", [folder, "-mindepth", "1", "-printf", "%P %y %s %T@ %l\\n"]);
  return stdout.toString().split("\n").filter((line) => !except.test(line)).sort();
}

const WRITING = ECHOING.replace("while", 'open("QMSignerExtHostLog.txt", "a").write("x"); sys.stderr.write("noise"); sys.stderr.flush()\nwhile');

const TRIALS = /^tmp /;

test("The doctor makes, changes and removes no file, though the host that it starts writes some", async (t) => {
  const forOne = await healthy(t, { program: WRITING });
  const forAll = await Computer.make(t, { program: WRITING, more: { DISPLAY: ":stand-in" } });
  await forAll.install("--system", "--root", forAll.root);
  forAll.installed = join(forAll.root, "usr/lib/quillmark");
  for (const computer of [forOne, forAll]) {
    computer.more.TMPDIR = join(computer.folder, "tmp");
    await mkdir(computer.more.TMPDIR);
    const before = await treeOf(computer.folder, TRIALS);
    const { findings } = await examine(computer);
    assert.ok(findings.some(({ text }) => /the signing program answers$/.test(text)), "it was started");
    assert.deepEqual(await treeOf(computer.folder, TRIALS), before);
    assert.deepEqual(await treeOf(computer.more.TMPDIR), [""]);
  }
});

// ---- names from anybody

const HOSTILE = {
  "clears the screen": "\u001b[2J\u001b[H",
  "sets the window's title": "\u001b]0;title\u0007",
  "steers with one character": "\u009b31m",
  "begins a line that looks like a finding": "x\n  ok CN=Asha Rao can sign\r",
  "is written from the right": "\u202egnp.exe\u2066",
  "holds what looks like nothing": "a\u200b\u00ad\u3164\u2800\u115f\ufe0f\u00a0\u2028\u{e0061}z",
  "is no Unicode": "\ud800",
};
/** What may stand in a line: no control, format, private or unassigned character, no blank but the ordinary, no filler. */
const PLAIN = /^[^\p{C}\u00a0\u2028\u3164\u2800\u115f\ufe0f]*$/u;

for (const [what, name] of Object.entries(HOSTILE)) {
  test(`A name that ${what} is shown by its characters' numbers, and in JSON as ASCII`, async (t) => {
    const tokens = {
      canSign: 1,
      modules: [
        { name: `maker ${name}`, used: true, slots: [{ token: { label: `label ${name}`, offered: true, certificates: [
          { subject: `CN=${name}`, offered: true, canSign: true, needsLogin: false, reasons: [] },
          { subject: "CN=Other", offered: false, canSign: false, needsLogin: false, reasons: [`because ${name}`] },
        ] } }] },
        { name: "broken", used: false, reason: `failed ${name}` },
      ],
    };
    const more = { DISPLAY: `:0${name.replaceAll(/[\0\ud800]/g, "")}` };
    const computer = await Computer.make(t, { browsers: ["chromium"], tokens, more });
    await computer.layOut();
    await computer.write(computer.userManifest("chromium"), {
      name: registration.name, description: registration.description, path: `/gone/${name}`,
    });
    await computer.write(join(computer.root, "etc/chromium/policies/managed/a.json"), {
      "3rdparty": { extensions: { [registration.chromiumExtensions[0]]: { deniedOrigins: [name], [name]: 1 } } },
    });
    const { findings } = await examine(computer);
    assert.equal(findings.filter(({ text }) => text.includes(name)).length >= 5, true, JSON.stringify(findings, null, 1));
    const json = (await computer.tool("quillmark-doctor", "--json")).out;
    assert.match(json, /^[\n\x20-\x7e]*$/);
    const { out } = await computer.tool("quillmark-doctor");
    const lines = out.split("\n");
    assert.deepEqual(lines.filter((line) => !PLAIN.test(line)), []);
    assert.equal(lines.length, findings.length + findings.filter(({ remedy, command }) => remedy ?? command).length + 3, "a finding is one line");
    const number = name.codePointAt(name.search(/[^\x20-\x7e]/u)).toString(16).toUpperCase().padStart(4, "0");
    assert.ok(out.includes(`<U+${number}>`), out);
  });
}

test("Letters of all scripts are shown as they are", async (t) => {
  const names = ["आशा राव", "Ángel Müller", "王小明", "אבי", "Bjørn & <b>Åse</b>"];
  const certificates = names.map((name) => ({ subject: `CN=${name}`, offered: true, canSign: true, needsLogin: false, reasons: [] }));
  const tokens = { canSign: 1, modules: [{ name: "m", used: true, slots: [{ token: { label: "t", offered: true, certificates } }] }] };
  const computer = await Computer.make(t, { browsers: [], tokens });
  await computer.layOut();
  const { out } = await computer.tool("quillmark-doctor");
  for (const name of names) assert.ok(out.includes(`CN=${name} on "t" can sign`), out);
  computer.more = { LC_ALL: "C", PYTHONUTF8: "0", PYTHONCOERCECLOCALE: "0", PYTHONIOENCODING: "ascii" };
  assert.match((await computer.tool("quillmark-doctor")).out, /CN=\\xc1ngel M\\xfcller on "t" can sign/);
});

test("A remedy that is a command has the path in it quoted", onHealthy({ browsers: ["chromium"] }, async (computer) => {
  const path = join(computer.folder, "it's; touch $(x)");
  await computer.write(path, "#!/bin/sh\n");
  await computer.changeManifest("chromium", { path, allowed_origins: ["chrome-extension://abc/"] });
  const { command } = await onlyProblem(computer);
  const { stdout } = await run("bash", ["-c", command.replace("chmod +x", "printf %s")]);
  assert.equal(stdout.toString(), path);
}));

// ---- the real program

const world = World.forThisFile(product);

/** What modules write when they are loaded, whoever loads them. */
const OF_MODULES = /^(\.tpm2_pkcs11|tokens)\b/;

test("With the real program, driver and a soft token: status 0, and 1 once the token is gone", async (t) => {
  const token = await world.softToken(t);
  const env = { ...process.env, ...world.desktop.env, ...token.env };
  await mkdir(join(token.env.HOME, ".config/chromium"), { recursive: true });
  await run(join(root, "install"), ["--from", bin], { env });
  const before = await treeOf(token.env.HOME, OF_MODULES);
  const doctor = async () => {
    const { code, stdout } = await runUnchecked(join(token.env.HOME, ".local/bin/quillmark-doctor"), ["--json"], { env });
    return { code, texts: JSON.parse(stdout).findings.map(({ level, text }) => `${level}: ${text}`) };
  };
  const well = await doctor();
  assert.equal(well.code, 0, well.texts.join("\n"));
  assert.ok(well.texts.some((text) => /^ok: .*CN=user on "Quillmark" can sign/.test(text)), well.texts.join("\n"));
  assert.ok(well.texts.some((text) => /^ok: Started as .*Chromium.* would, the signing program answers/.test(text)));
  assert.deepEqual(await treeOf(token.env.HOME, OF_MODULES), before);

  await rm(join(token.env.HOME, "tokens"), { recursive: true });
  await mkdir(join(token.env.HOME, "tokens"));
  const ill = await doctor();
  assert.equal(ill.code, 1);
  assert.ok(ill.texts.includes("failure: No token that can sign is there"), ill.texts.join("\n"));
});
