// Where no token can sign: what the doctor says of readers, of cards, of the modules' files and of pcscd's own refusals.

import assert from "node:assert/strict";
import { mkdir, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { Cleanup, run, World } from "../lib/kit.mjs";
import { bin, product, root } from "../lib/quillmark.mjs";
import { CardReader, makeCard, noReader } from "../lib/token/smart-card/reader.mjs";
import { examine, healthy } from "./lib/health.mjs";

const modules = (...names) => ({ canSign: 0, modules: names.map((name) => ({ name, used: true, slots: [] })) });
const YUBIKEY = "3B FD 13 00 00 81 31 FE 15 80 73 C0 21 C0 57 59 75 62 69 4B 65 79 40";

/** The library of pcscd's clients, with one reader; code: what it answers to whoever comes, connect: to whoever wants the card. */
const libraryOf = ({ code = 0, connect = 0, atr = "" }) => `
#include <string.h>
struct state { const char* reader; void* data; unsigned long current, event, length; unsigned char atr[33]; };
static const unsigned char ATR[] = { ${atr.split(" ").filter(Boolean).map((byte) => `0x${byte},`).join("")} 0 };
long SCardEstablishContext(unsigned long s, void* a, void* b, long* c) { *c = 1; return ${code}L; }
long SCardListReaders(long c, const char* g, char* names, unsigned long* size) {
  if (names) memcpy(names, "Reader\\0", 8);
  *size = 8; return 0;
}
long SCardGetStatusChange(long c, unsigned long t, struct state* s, unsigned long n) {
  s->length = sizeof ATR - 1; memcpy(s->atr, ATR, s->length); return 0;
}
long SCardConnect(long c, const char* r, unsigned long m, unsigned long p, long* card, unsigned long* active) { return ${connect}L; }
long SCardDisconnect(long c, unsigned long d) { return 0; }
long SCardReleaseContext(long c) { return 0; }
`;

/** The doctor's findings about readers, on a computer with such a library and these modules. */
async function readersWith(t, library, tokens = modules("opensc-pkcs11"), files = {}) {
  const computer = await healthy(t, { tokens });
  const folder = join(computer.folder, "library");
  await mkdir(folder);
  await writeFile(join(folder, "pcsc.c"), libraryOf(library));
  await run("gcc", ["-shared", "-fPIC", "-o", join(folder, "libpcsclite.so.1"), join(folder, "pcsc.c")]);
  computer.more.LD_LIBRARY_PATH = folder;
  for (const [file, content] of Object.entries(files)) await computer.write(join(computer.root, file), content);
  return (await examine(computer)).findings.filter(({ check }) => check === "readers");
}

test("pcscd's own refusals are told with the action of polkit, and a rule that allows it", async (t) => {
  for (const [library, action] of [[{ code: 0x8010006A }, "access_pcsc"], [{ atr: YUBIKEY, connect: 0x8010006A }, "access_card"]]) {
    const [{ text, command }] = await readersWith(t, library);
    assert.equal(text, `pcscd refuses you the cards: polkit does not allow you the action org.debian.pcsc-lite.${action}`);
    assert.match(command, /^echo '.*org\.debian\.pcsc-lite\..*' \| sudo tee \/etc\/polkit-1\/rules\.d\/50-pcscd\.rules$/);
  }
});

test("An empty reader is told", async (t) => {
  const [{ text, remedy }] = await readersWith(t, {});
  assert.equal(text, 'No card is in the reader "Reader"');
  assert.equal(remedy, "Put your card into it");
});

test("A card that no module takes is told by its ATR, its name and the Debian package that is likely", async (t) => {
  const list = { "usr/share/pcsc/smartcard_list.txt": `# a list\n${YUBIKEY}\n\tYubico YubiKey 5\n\n` };
  const [known] = await readersWith(t, { atr: YUBIKEY }, modules("opensc-pkcs11"), list);
  assert.equal(known.text, `No module takes the card in the reader "Reader", Yubico YubiKey 5; its ATR is ${YUBIKEY}`);
  assert.equal(known.command, "sudo apt install ykcs11");
  const [first] = await readersWith(t, { atr: "3B 00" }, modules("softhsm2"));
  assert.match(first.text, /its ATR is 3B 00$/);
  assert.equal(first.command, "sudo apt install opensc");
  const [last] = await readersWith(t, { atr: "3B 00" });
  assert.match(last.remedy, /^Install its maker's PKCS#11 module, and register it with p11-kit/);
  assert.equal(last.command, null);
});

test("An answer to reset that is longer than one can be stops nothing, and nor does a library without functions", async (t) => {
  assert.equal((await readersWith(t, { atr: Array(33).fill("FF").join(" ") })).length, 1);
  const computer = await healthy(t, { tokens: modules("opensc-pkcs11") });
  computer.more.LD_LIBRARY_PATH = join(computer.folder, "library");
  await computer.write(join(computer.more.LD_LIBRARY_PATH, "libpcsclite.so.1"), "no library");
  assert.deepEqual((await examine(computer)).findings.filter(({ check }) => check === "readers"), []);
});

test("A module's file of a Debian package is put right by the package", async (t) => {
  const tokens = { canSign: 0, modules: [{ name: "opensc", used: false, reason: "cannot open shared object file", slots: [] }] };
  const computer = await healthy(t, { tokens });
  const path = "/usr/share/p11-kit/modules/opensc.module";
  await computer.write(join(computer.root, path), "module: opensc-pkcs11.so\n");
  await computer.write(join(computer.root, "var/lib/dpkg/info/opensc-pkcs11:amd64.list"), `/usr/share\n${path}\n`);
  const found = (await examine(computer)).problems.find(({ text }) => text.startsWith("The module opensc is not used"));
  assert.equal(found.command, "sudo apt install --reinstall opensc-pkcs11");
});

// ---- with what is really there

const world = World.forThisFile(product);

test("With the real pcscd: the card's ATR, and the reader without it", { skip: noReader }, async (t) => {
  const cleanup = new Cleanup();
  t.after(() => cleanup.run());
  const computer = await healthy(t, { tokens: modules("softhsm2") });
  const reader = await CardReader.start(cleanup);
  computer.more = { ...computer.more, ...reader.env };
  const said = async () => (await examine(computer)).findings.filter(({ check }) => check === "readers");
  assert.match((await said())[0].text, /^No card is in the reader "Quillmark/);
  await reader.insert(await makeCard(await cleanup.folder("card"), world, { holder: "Asha Rao", pin: "123456" }));
  const texts = (await said()).map(({ text }) => text);
  assert.ok(texts.some((text) => /^No module takes the card in the reader "Quillmark.*; its ATR is 3B 80 01 81/.test(text)), texts.join("\n"));
});

test("With the real driver: a .module file whose library is gone is named, and its command ends that", async (t) => {
  const token = await world.softToken(t);
  const env = { ...process.env, ...world.desktop.env, ...token.env };
  await mkdir(join(token.env.HOME, ".config/chromium"), { recursive: true });
  await run(join(root, "install"), ["--from", bin], { env });
  const folder = join(token.env.HOME, ".config/pkcs11/modules");
  await writeFile(join(folder, "gone.module"), "module: /gone/libgone.so\n");
  const doctor = async () => {
    const { stdout } = await run(join(token.env.HOME, ".local/bin/quillmark-doctor"), ["--json"], { env });
    return JSON.parse(stdout).findings.find(({ text }) => text.startsWith("The module gone is not used: "));
  };
  const { text, remedy, command } = await doctor();
  assert.match(text, /libgone\.so/);
  assert.ok(remedy.includes(join(folder, "gone.module")));
  await run("bash", ["-c", command], { env });
  assert.equal(await doctor(), undefined);
  await rm(join(folder, "gone.module.old"));
});
