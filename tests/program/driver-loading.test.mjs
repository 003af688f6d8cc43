// The PKCS#11 module: finding it, and judging what its functions return.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import {
  bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, CK, ENTRY_POINTS, errorLine, NORMAL_END, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const couldNotLoad = (path) => [
  `Could not load Smartcard or Token driver from path: ${path}, exiting Quillmark Extension Host... `,
  "",
  "Put the file in application folder with name 'QMTokenDriver.so' and try again.",
];

/** What a host that could not load its module has logged, after the user has closed the message box. */
async function logOfFailure(t, options) {
  const host = await world.hostWithoutDriver(t, options);
  assert.equal(await host.replyFrame(), null);
  return host.logLines();
}

const ELSEWHERE = "/nowhere/at all/module.so";
for (const [rule, options, path, reason] of [
  ["A missing module: the message says where it was looked for and what to do", { settings: null }, "./QMTokenDriver.so"],
  ["A missing module at a path of the settings: the message names that path",
    { settings: { AppLogLevel: 1, TokenDriverFullPath: ELSEWHERE } }, ELSEWHERE, /module\.so: cannot open shared object file/],
  ["A file that is no module is like a missing one",
    { prepare: (folder) => writeFile(join(folder, "QMTokenDriver.so"), "no module") }, "./QMTokenDriver.so", /QMTokenDriver\.so/],
]) {
  test(rule, async (t) => {
    const lines = await logOfFailure(t, options);
    assert.deepEqual(lines.slice(-3), couldNotLoad(path));
    if (reason) assert.match(lines.at(-4), reason);
  });
}

test("Loading calls no function of the module", withFake(async ({ host, token }) => {
  await host.request({});
  await host.finish();
  assert.deepEqual(await token.calls(), []);
}));

test("The session is left open and the module initialised at the end", withFake(async ({ host, token }) => {
  await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
  await host.finish();
  assert.equal((await token.sequence()).at(-1), "C_Sign");
}));

const thrownBySelection = (label) => `Error  in GetSelCertFromToken(): ${errorLine(label, CK.CKR_FUNCTION_NOT_SUPPORTED)}`;

/** The reply to a request for a certificate when the module lacks the function. Others fail only when a key is used. */
const withoutFunction = {
  C_Initialize: errorLine("C_Initialize", CK.CKR_FUNCTION_NOT_SUPPORTED),
  C_GetSlotList: errorLine("C_GetSlotList", CK.CKR_FUNCTION_NOT_SUPPORTED),
  C_OpenSession: errorLine("C_OpenSession", CK.CKR_FUNCTION_NOT_SUPPORTED),
  C_FindObjectsInit: thrownBySelection("BuildTokenCertList - C_FindObjectsInit"),
  C_FindObjects: thrownBySelection("BuildTokenCertList - C_FindObjects"),
  C_FindObjectsFinal: thrownBySelection("BuildTokenCertList - C_FindObjectsFinal"),
  C_GetAttributeValue: thrownBySelection("BuildTokenCertList - C_GetAttributeValue for Sizing"),
};

for (const [name, text] of Object.entries(withoutFunction)) {
  test(`A module without ${name} loads, and the first use fails with its name and 0x54`, withFake({ without: name }, async ({ host }) => {
    const reply = await host.request(CHOOSE);
    assert.deepEqual(reply, { status_cd: 0, result: `QMHost Error: ${text}`, nonce: "" });
    assert.equal((await host.request({ text: "on" })).result, "QMHost Error: echo: on");
    await world.desktop.windowGone(WINDOW_TITLE);
    assert.deepEqual(await host.finish(), NORMAL_END);
  }));
}

for (const name of ["C_SignInit", "C_Sign"]) {
  test(`A module without ${name} loads, and signing fails with its name and 0x54`, withFake({ without: name }, async ({ host }) => {
    const { result } = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
    const line = errorLine(name, CK.CKR_FUNCTION_NOT_SUPPORTED);
    assert.equal(result, `QMHost Error: Error  in TokenSignData(): ${line}`);
    assert.deepEqual(await host.finish(), NORMAL_END);
  }));
}

test("A module without C_Login loads, and the login fails with its name and 0x54 in the log", async (t) => {
  const { host } = await world.hostWithFake(t, { without: "C_Login" });
  const { result } = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
  assert.equal(result, "QMHost Error: ");
  const line = errorLine("C_Login", CK.CKR_FUNCTION_NOT_SUPPORTED);
  assert.ok((await host.logLines()).includes(`Error in GetTokenPvtKey(): ${line}`));
});

test("A module without C_Finalize answers for a missing token as any other", async (t) => {
  const { host } = await world.hostWithFake(t, { without: "C_Finalize", slots: [] });
  const { result } = await host.request(CHOOSE);
  assert.equal(result, "QMHost Error: No slot with token attached.");
});

test("A module without C_SignFinal signs", withFake({ without: "C_SignFinal" }, async ({ host }) => {
  const reply = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
  assert.equal(reply.status_cd, 1);
  await world.judges.rsa(bytesOf(reply.result), "x", (await world.certificate()).pem);
}));

test("Each of the host's entry points has its test with a module that lacks it", () => {
  const tested = [...Object.keys(withoutFunction), "C_SignInit", "C_Sign", "C_Login", "C_Finalize", "C_SignFinal"];
  assert.deepEqual(tested.sort(), [...ENTRY_POINTS].sort());
});

for (const [code, shown] of [
  [CK.CKR_CRYPTOKI_NOT_INITIALIZED, "0x00000190"],
  [0x80000001, "0x80000001"],
  [0xabcdef12, "0xABCDEF12"],
  [2 ** 32 + 5, "0x00000005"],
  [2 ** 32, "0x00000000"],
]) {
  test(`The return value 0x${code.toString(16)} is a failure and is shown as ${shown}`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: "C_Initialize", rv: code }] });
    const { result } = await host.request(CHOOSE);
    const line = `[CKR_ERROR in C_Initialize] ErrCode = ${shown}.`;
    assert.equal(result, `QMHost Error: ${line}`);
    const lines = await host.logLines();
    assert.ok(lines.includes(line) && lines.includes(`Error  in TokenOpenSession(): ${line}`));
  });
}

test("A failed call is logged at DEBUG and its handler's line at EXCEPTION", async (t) => {
  const faults = [{ call: "C_Initialize", rv: CK.CKR_GENERAL_ERROR }];
  const { host } = await world.hostWithFake(t, { faults }, { settings: { AppLogLevel: 3 } });
  await host.request(CHOOSE);
  assert.deepEqual((await host.logLines()).slice(1),
    [`Error  in TokenOpenSession(): ${errorLine("C_Initialize", CK.CKR_GENERAL_ERROR)}`]);
});

test("A call that succeeds is logged with its label", withFake(async ({ host }) => {
  await chooseFirst(host, CHOOSE);
  const lines = await host.logLines();
  for (const label of ["C_Initialize", "C_GetSlotList", "C_OpenSession", "BuildTokenCertList - C_FindObjectsInit",
    "BuildTokenCertList - C_FindObjects", "BuildTokenCertList - C_GetAttributeValue for Sizing",
    "BuildTokenCertList - C_GetAttributeValue", "BuildTokenCertList - C_FindObjectsFinal"]) {
    assert.ok(lines.includes(`PKCS11 Operation [OK] ${label}`), label);
  }
}));
