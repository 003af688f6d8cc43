// A folder, files, a clock and a language that are not as the host would like them.

import assert from "node:assert/strict";
import { chmod, mkdir, readFile, rename, symlink, truncate, unlink, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, FAILURE_PREFIX, NORMAL_END, openWindow, run } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const TEXT = "to be signed";
const FILES_OF_THE_HOST = ["QMSignerExtHostLog.txt", "PKCS7Sign.txt", "CMSSign.txt"];

/** Root is refused nothing; this puts him in the place of others. */
const withoutPrivileges = process.getuid() === 0 ? ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] : [];

/** Every action that writes a file of its own, and a last one that shows that all is well; each signature is good. */
async function doTheWholeJob(host) {
  const certificate = await world.certificate();
  const cms = await chooseAndLogIn(host, { action: "GSTReturnSign", hash: TEXT });
  assert.equal(cms.status_cd, 1, cms.result);
  assert.equal((await world.judges.cms(bytesOf(cms.result))).toString(), TEXT);

  const hash = Buffer.alloc(32, 7).toString("base64");
  const pkcs7 = await host.request({ action: "PdfSignFromToken", hash, certThumbPrint: certificate.thumbprint });
  assert.equal(pkcs7.status_cd, 1, pkcs7.result);

  assert.equal(JSON.parse((await chooseFirst(host, CHOOSE)).result).CKA_ID, "01");
  assert.equal((await host.request({ text: "served" })).result, `${FAILURE_PREFIX}echo: served`);
}

test("A folder that cannot be written: nothing is lost but the files", async (t) => {
  const prepare = async (folder) => {
    await chmod(folder, 0o555);
    world.cleanupOf(t).add(() => chmod(folder, 0o755));
  };
  const { host } = await world.hostWithFake(t, {}, { prepare, wrapper: withoutPrivileges });
  await doTheWholeJob(host);
  assert.deepEqual(await host.finish(), NORMAL_END);
  for (const name of FILES_OF_THE_HOST) await assert.rejects(host.readFile(name), { code: "ENOENT" });
});

test("A full folder: nothing is lost but the files, and the log goes on when there is room again", async (t) => {
  const place = await world.cleanupOf(t).folder("full");
  const moveIn = 'mount --make-rslave / 2>&-; mount -t tmpfs -o size=64k none "$0" && cp -a . "$0" && cd "$0"'
    + ' && ! cat /dev/zero >filling 2>&- && exec "$@"';
  // In a changed root that is no mount point the kernel takes no word on how mounts spread: that is said inside, where it can be.
  const isolated = ["unshare", "--mount", "--propagation", "unchanged", ...(process.getuid() === 0 ? [] : ["--user", "--map-root-user"])];
  const { host } = await world.hostWithFake(t, {}, { wrapper: [...isolated, "sh", "-c", moveIn, place] });
  await doTheWholeJob(host);
  const inside = (name) => `/proc/${host.pid}/cwd/${name}`; // nobody else sees the folder
  for (const name of FILES_OF_THE_HOST) assert.equal(await readFile(inside(name), "utf8"), "", name);

  await unlink(inside("filling"));
  await host.request({ text: "logged again" });
  assert.match(await readFile(inside(FILES_OF_THE_HOST[0]), "utf8"), /echo: logged again\n/);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

test("Directories in the place of the log and the debug copies: nothing is lost but the files", async (t) => {
  const prepare = (folder) => Promise.all(FILES_OF_THE_HOST.map((name) => mkdir(join(folder, name))));
  const { host } = await world.hostWithFake(t, {}, { prepare });
  await doTheWholeJob(host);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

const SETTINGS_FILE = "QMHostSettings.json";
const reasons = {
  "a directory": [(file) => mkdir(file), "Is a directory"],
  "100 MB of a JSON text": [async (file) => {
    await writeFile(file, '{"AppLogLevel":1,"more":"');
    await truncate(file, 100_000_000);
  }, "larger than 1000000 bytes"],
  "not readable": [(file) => writeFile(file, '{"AppLogLevel":1}', { mode: 0 }), "Permission denied"],
  "a pipe": [(file) => run("mkfifo", [file]), "not a regular file"],
  "endless": [(file) => symlink("/dev/zero", file), "not a regular file"],
  "a link to itself": [(file) => symlink(SETTINGS_FILE, file), "Too many levels of symbolic links"],
};
for (const [what, [make, reason]] of Object.entries(reasons)) {
  test(`A settings file that is ${what}: one line says why, and the defaults hold`, async (t) => {
    const prepare = (folder) => make(join(folder, SETTINGS_FILE));
    const { host } = await world.hostWithFake(t, {}, { settings: null, prepare, wrapper: withoutPrivileges });
    assert.equal((await host.request({ text: "served" }, { timeout: 5000 })).result, `${FAILURE_PREFIX}echo: served`);
    assert.deepEqual(await host.logLines(), [
      `Cound not Load Settings from ${SETTINGS_FILE} - ${SETTINGS_FILE}: ${reason}`,
      "Host Application Started",
      "Token Drivers Loaded from ./QMTokenDriver.so",
    ]);
    assert.deepEqual(await host.finish(), NORMAL_END);
  });
}

/** The choice of a certificate and a GST signature in the given surroundings: the record, the signature, the log. */
async function workOf(t, env, certificate) {
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "01" }] }, { env });
  const record = await chooseFirst(host, CHOOSE);
  const signature = await chooseAndLogIn(host, { action: "GSTReturnSign", hash: TEXT });
  assert.deepEqual(await host.finish(), NORMAL_END);
  const stamps = (await host.logText()).match(/^\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4} /gm);
  return { record, signature, lines: await host.logLines(), stamps };
}

test("In no language are dates, numbers or signatures other than in English", async (t) => {
  const certificate = await world.certificate("dated", { from: "20221231000000Z", to: "20301031235959Z" });
  const folder = await world.cleanupOf(t).folder("locales");
  const plain = await workOf(t, { LC_ALL: "C" }, certificate);
  assert.equal(JSON.parse(plain.record.result).ExpDate, "Thu, 31 Oct 2030 23:59:59 GMT");
  // Other digits; other letters for i and I; text from right to left.
  const languages = ["hi_IN", "fa_IR", "tr_TR", "ar_SA"];
  const generate = (language) =>
    run("localedef", ["--no-archive", "-i", language, "-f", "UTF-8", join(folder, `${language}.UTF-8`)], { timeout: 120_000 });
  await Promise.all(languages.map(generate));
  for (const language of languages) {
    const there = await workOf(t, { LOCPATH: folder, LC_ALL: `${language}.UTF-8`, LANGUAGE: language }, certificate);
    assert.deepEqual(there.record, plain.record, language);
    assert.deepEqual(there.signature, plain.signature, language);
    assert.deepEqual(there.lines, plain.lines, language);
    assert.equal(there.stamps.length, plain.stamps.length, language);
  }
});

/** The environment in which the clock of the machine is what `setClock` says, though it goes on evenly inside programs. */
async function withClock(t) {
  const file = join(await world.cleanupOf(t).folder("clock"), "now");
  const setClock = async (date) => {
    await writeFile(`${file}.new`, `@${date}`);
    await rename(`${file}.new`, file);
  };
  const env = { LD_PRELOAD: "/usr/$LIB/faketime/libfaketime.so.1", FAKETIME_TIMESTAMP_FILE: file,
    FAKETIME_NO_CACHE: "1", FAKETIME_DONT_FAKE_MONOTONIC: "1" };
  return { setClock, env };
}

test("A clock that is set back while the window waits delays nothing", async (t) => {
  const { setClock, env } = await withClock(t);
  await setClock("2026-11-16 07:31:58");
  const { host } = await world.hostWithFake(t, {}, { env });
  await openWindow(host, CHOOSE);
  await setClock("2001-01-01 00:00:00");
  const since = process.hrtime.bigint();
  await host.user.clickOk();
  assert.equal((await host.reply()).status_cd, 1);
  assert.ok(process.hrtime.bigint() - since < 3_000_000_000n);
  assert.match(await host.logText(), /^Mon Nov 16 07:\d\d:\d\d 2026 Host Application Started$/m);
  assert.match(await host.logText(), /^Mon Jan {2}1 00:0\d:\d\d 2001 Select Certificate Dialog Closed$/m);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

test("Whether a certificate has expired goes by the clock of the moment", async (t) => {
  const { setClock, env } = await withClock(t);
  const certificate = await world.certificate("dated", { from: "20221231000000Z", to: "20301031235959Z" });
  for (const [now, words] of [["2030-10-31 12:00:00", "Valid upto: "], ["2031-01-01 00:00:00", "Expired: "],
    ["1970-01-02 00:00:00", "Valid upto: "], ["2105-01-01 00:00:00", "Expired: "]]) {
    await setClock(now);
    const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "01" }] }, { env });
    await chooseFirst(host, CHOOSE);
    assert.ok((await host.logLines()).some((line) => line.includes(`<b>${words}Thu, 31 Oct 2030 23:59:59 GMT</b>`)), now);
    assert.deepEqual(await host.finish(), NORMAL_END);
  }
});
