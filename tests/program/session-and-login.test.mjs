// Opening a session on the token, and logging in with the user's PIN.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  CHOOSE, chooseAndLogIn, chooseFirst, CK, errorLine, NO_PIN_TEXT, NORMAL_END, openPinDialog, PIN_TITLE, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { copiesInMemory } from "./lib/memory.mjs";
import { withFake, world } from "./lib/world.mjs";

const SIGN_TOKEN = { action: "SignAuthToken", authToken: "token" };

test("A session is opened with these calls and arguments", withFake({ slots: [7] }, async ({ host, token }) => {
  await chooseFirst(host, CHOOSE);
  const calls = (await token.calls()).slice(0, 4).map(({ call, in: given }) => [call, given]);
  assert.deepEqual(calls, [
    ["C_Initialize", { isNull: true }],
    ["C_GetSlotList", { tokenPresent: 1, isNull: true, count: 0 }],
    ["C_GetSlotList", { tokenPresent: 1, isNull: false, count: 1 }],
    ["C_OpenSession", {
      slot: 7, flags: CK.CKF_SERIAL_SESSION | CK.CKF_RW_SESSION, applicationIsNull: true, notifyIsNull: true,
    }],
  ]);
}));

test("Of two tokens the first that the module reports is used", withFake({ slots: [9, 3] }, async ({ host, token }) => {
  await chooseFirst(host, CHOOSE);
  assert.deepEqual((await token.calls("C_OpenSession")).map((call) => call.in.slot), [9]);
}));

test("No token: the module is finalised, the window hidden, and the next request tries again", async (t) => {
  const { host, token } = await world.hostWithFake(t, { slots: [] });
  for (let i = 0; i < 2; ++i) {
    const { result } = await host.request(CHOOSE);
    assert.equal(result, "QMHost Error: No slot with token attached.");
    await world.desktop.windowGone(WINDOW_TITLE);
  }
  const round = ["C_Initialize", "C_GetSlotList", "C_Finalize"];
  assert.deepEqual(await token.sequence(), [...round, ...round]);
  assert.deepEqual((await token.calls("C_Finalize"))[0].in, { isNull: true });
});

test("No token: a failing C_Finalize changes nothing", async (t) => {
  const { host } = await world.hostWithFake(t, { slots: [], faults: [{ call: "C_Finalize", rv: CK.CKR_GENERAL_ERROR }] });
  assert.equal((await host.request(CHOOSE)).result, "QMHost Error: No slot with token attached.");
});

test("A token that comes after the first request is found by the next", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetSlotList", nth: 1, out: { count: 0 } }] });
  assert.equal((await host.request(CHOOSE)).status_cd, 0);
  assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
});

test("A write-protected token: the failed open is reported, and a second one fails as initialised already", async (t) => {
  const faults = [{ call: "C_OpenSession", rv: CK.CKR_TOKEN_WRITE_PROTECTED }];
  const { host } = await world.hostWithFake(t, { faults });
  const replies = [await host.request(CHOOSE), await host.request(SIGN_TOKEN)];
  assert.deepEqual(replies.map(({ result }) => result), [
    `QMHost Error: ${errorLine("C_OpenSession", CK.CKR_TOKEN_WRITE_PROTECTED)}`,
    `QMHost Error: ${errorLine("C_Initialize", CK.CKR_CRYPTOKI_ALREADY_INITIALIZED)}`,
  ]);
  await world.desktop.windowGone(WINDOW_TITLE);
});

for (const [nth, code] of [[1, CK.CKR_GENERAL_ERROR], [2, CK.CKR_TOKEN_NOT_PRESENT]]) {
  test(`A failure of C_GetSlotList at its call ${nth} is reported`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetSlotList", nth, rv: code }] });
    assert.equal((await host.request(CHOOSE)).result, `QMHost Error: ${errorLine("C_GetSlotList", code)}`);
  });
}

for (const count of [2 ** 40, -1]) {
  test(`A module that reports ${count} slots is answered with a failure`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetSlotList", nth: 1, out: { count } }] });
    const reply = await host.request(CHOOSE);
    assert.equal(reply.status_cd, 0);
    assert.deepEqual(await host.finish(), NORMAL_END);
  });
}

test("The slots that vanish between two calls leave no slot to open", async (t) => {
  const { host, token } = await world.hostWithFake(t, { faults: [{ call: "C_GetSlotList", nth: 2, out: { count: 0 } }] });
  assert.equal((await host.request(CHOOSE)).status_cd, 0);
  assert.deepEqual(await token.calls("C_OpenSession"), []);
});

test("Choosing a certificate asks for no PIN", withFake(async ({ host, token }) => {
  await chooseFirst(host, CHOOSE);
  assert.deepEqual(await token.calls("C_Login"), []);
}));

test("The PIN goes to the module as the user typed it, without a terminator", withFake({ pin: "4-Ever x" }, async ({ host, token }) => {
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN, "4-Ever x")).status_cd, 1);
  const [{ in: given, rv }] = await token.calls("C_Login");
  assert.deepEqual([given.user, given.pin, given.pinLength, rv], [CK.CKU_USER, "4-Ever x", 8, 0]);
  assert.equal(given.session, (await token.calls("C_OpenSession"))[0].out.session);
}));

test("A PIN beyond ASCII goes to the module as UTF-8", withFake({ pin: "päß€" }, async ({ host, token }) => {
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN, "päß€")).status_cd, 1);
  assert.equal((await token.calls("C_Login"))[0].in.pinLength, Buffer.byteLength("päß€"));
}));

test("The PIN is asked for once, and its dialog stands above the others", withFake(async ({ host, token }) => {
  host.send(SIGN_TOKEN);
  await host.user.clickOk();
  await world.desktop.above(await world.desktop.window(PIN_TITLE));
  await host.user.enterPin("1234");
  assert.equal((await host.reply()).status_cd, 1);
  for (let i = 0; i < 2; ++i) assert.equal((await chooseFirst(host, SIGN_TOKEN)).status_cd, 1);
  assert.equal((await token.calls("C_Login")).length, 1);
}));

for (const [what, leave] of [
  ["cancelled", (host) => host.user.cancelPin()],
  ["left empty", (host) => host.user.enterPin("")],
]) {
  test(`A PIN dialog that is ${what}: the module is not asked, and the next request asks the user again`, async (t) => {
    const { host, token } = await world.hostWithFake(t);
    host.send(SIGN_TOKEN);
    await host.user.clickOk();
    await leave(host);
    assert.deepEqual(await host.reply(), { status_cd: 0, result: "QMHost Error: ", nonce: "" });
    assert.deepEqual(await token.calls("C_Login"), []);
    assert.ok((await host.logLines()).includes(`Error in GetTokenPvtKey(): ${NO_PIN_TEXT}`));
    assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).status_cd, 1);
  });
}

test("A PIN that is typed and then cancelled is not used", withFake(async ({ host, token }) => {
  const dialog = await openPinDialog(host, SIGN_TOKEN);
  await world.desktop.type(dialog, "1234");
  await world.desktop.key(dialog, "Escape");
  assert.equal((await host.reply()).result, "QMHost Error: ");
  assert.deepEqual(await token.calls("C_Login"), []);
}));

test("A wrong PIN: the reason is in the log, and the next request asks again", withFake(async ({ host, token }) => {
  const wrong = await chooseAndLogIn(host, SIGN_TOKEN, "4321");
  assert.deepEqual(wrong, { status_cd: 0, result: "QMHost Error: ", nonce: "" });
  const line = errorLine("C_Login", CK.CKR_PIN_INCORRECT);
  const lines = await host.logLines();
  assert.ok(lines.includes(`Error  in TokenLogin(): ${line}`));
  assert.ok(lines.includes(`Error in GetTokenPvtKey(): ${line}`));
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).status_cd, 1);
  assert.deepEqual((await token.calls("C_Login")).map(({ rv }) => rv), [CK.CKR_PIN_INCORRECT, 0]);
}));

test("A locked token: every login fails with its code in the log, and the host goes on", withFake({ pinTries: 1 }, async ({ host }) => {
  for (const [pin, code] of [["4321", CK.CKR_PIN_INCORRECT], ["1234", CK.CKR_PIN_LOCKED], ["1234", CK.CKR_PIN_LOCKED]]) {
    assert.equal((await chooseAndLogIn(host, SIGN_TOKEN, pin)).result, "QMHost Error: ");
    assert.equal((await host.logLines()).filter((line) => line.startsWith("Error  in TokenLogin(): ")).at(-1),
      `Error  in TokenLogin(): ${errorLine("C_Login", code)}`);
  }
  assert.deepEqual(await host.finish(), NORMAL_END);
}));

test("A user who is logged in already is a failure like any other", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_Login", rv: CK.CKR_USER_ALREADY_LOGGED_IN }] });
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).result, "QMHost Error: ");
  const line = errorLine("C_Login", CK.CKR_USER_ALREADY_LOGGED_IN);
  assert.ok((await host.logLines()).includes(`Error  in TokenLogin(): ${line}`));
});

test("The PIN is in no log line and no file", async (t) => {
  const pin = "7-secret-PIN-1";
  const { host } = await world.hostWithFake(t, { pin });
  await chooseAndLogIn(host, SIGN_TOKEN, "wrong-but-secret");
  await chooseAndLogIn(host, { action: "GSTReturnSign", hash: "text" }, pin);
  await host.finish();
  const log = await host.logText();
  for (const secret of [pin, "wrong-but-secret"]) assert.ok(!log.includes(secret));
  assert.ok(!(await host.readFile("CMSSign.txt")).includes(pin));
});

test("No copy of a PIN stays in memory but the one that is needed for the next login", async (t) => {
  const pin = "7-secret-PIN-1";
  const host = await world.host(t, { token: await world.softToken(t, { pin }) });
  await chooseAndLogIn(host, SIGN_TOKEN, "wrong-but-secret");
  assert.deepEqual(await copiesInMemory(host.pid, "wrong-but-secret"), []);
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN, pin)).status_cd, 1);
  const copies = await copiesInMemory(host.pid, pin);
  assert.deepEqual(copies.filter(({ encoding }) => encoding !== "UTF-8"), [], "none in the windows' encodings");
  assert.ok([1, 2].includes(copies.length), `the host's, and the driver's if it keeps one, not ${copies.length}`);
});
