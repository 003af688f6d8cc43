// Finding the key and having the token sign.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  bytesOf, CANCEL_TEXT, cancelChoice, CHOOSE, chooseAndLogIn, chooseFirst, CK, errorLine, FAILURE_PREFIX, NORMAL_END,
  PIN_TITLE, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const SIGN_TOKEN = { action: "SignAuthToken", authToken: "token" };
const hex = (text) => Buffer.from(text).toString("hex");

test("The key search has numbers of four bytes and the CKA_ID with its terminating zero", withFake(async ({ host, token }) => {
  await chooseAndLogIn(host, SIGN_TOKEN);
  const [, { in: given }] = await token.calls("C_FindObjectsInit");
  assert.deepEqual([given.count, given.template], [4, [
    { type: CK.CKA_CLASS, length: 4, value: "03000000" },
    { type: CK.CKA_KEY_TYPE, length: 4, value: "00000000" },
    { type: CK.CKA_TOKEN, length: 1, value: "01" },
    { type: CK.CKA_ID, length: 3, value: "303100" },
  ]]);
}));

test("A signature is these calls, with these arguments", withFake(async ({ host, token }) => {
  await chooseAndLogIn(host, SIGN_TOKEN);
  const calls = await token.calls();
  const signing = calls.slice(calls.findIndex(({ call }) => call === "C_Login"));
  assert.deepEqual(signing.map(({ call }) => call),
    ["C_Login", "C_FindObjectsInit", "C_FindObjects", "C_FindObjectsFinal", "C_SignInit", "C_Sign"]);
  const { session } = calls.find(({ call }) => call === "C_OpenSession").out;
  const [, , find, , init, sign] = signing;
  assert.deepEqual(find.in, { session, max: 1, count: 0 });
  assert.deepEqual(init.in, { session, mechanism: CK.CKM_SHA256_RSA_PKCS, parameterIsNull: true, parameterLength: 0,
    key: find.out.object });
  assert.deepEqual(sign.in, { session, data: hex("token"), dataLength: 5, isNull: false, length: 1024 });
}));

test("The mechanism goes by the exact name of the hash, and is SHA-256 for every other", withFake(async ({ host, token }) => {
  await chooseAndLogIn(host, SIGN_TOKEN);
  for (const [hashAlgorithm, mechanism] of [
    ["SHA384", CK.CKM_SHA384_RSA_PKCS], ["SHA512", CK.CKM_SHA512_RSA_PKCS], ["SHA1", CK.CKM_SHA256_RSA_PKCS],
    ["sha384", CK.CKM_SHA256_RSA_PKCS], ["MD5", CK.CKM_SHA256_RSA_PKCS], ["--", CK.CKM_SHA256_RSA_PKCS],
  ]) {
    assert.equal((await chooseFirst(host, { ...SIGN_TOKEN, hashAlgorithm })).status_cd, 1);
    assert.equal((await token.calls("C_SignInit")).at(-1).in.mechanism, mechanism, hashAlgorithm);
  }
}));

test("A key of 2048 bits gives 256 bytes, 344 letters of Base64, that verify under each hash", withFake(async ({ host }) => {
  const { pem } = await world.certificate();
  await chooseAndLogIn(host, SIGN_TOKEN);
  for (const hash of ["sha256", "sha384", "sha512"]) {
    const { result } = await chooseFirst(host, { ...SIGN_TOKEN, hashAlgorithm: hash.toUpperCase() });
    const signature = bytesOf(result);
    assert.deepEqual([result.length, signature.length], [344, 256]);
    await world.judges.rsa(signature, "token", pem, hash);
  }
}));

test("A key of 4096 bits gives 512 bytes", async (t) => {
  const certificate = await world.certificate("large", { bits: 4096 });
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "large" }] });
  const { result } = await chooseAndLogIn(host, SIGN_TOKEN);
  const signature = bytesOf(result);
  assert.equal(signature.length, 512);
  await world.judges.rsa(signature, "token", certificate.pem);
});

test("The token gets the text itself, byte for byte", withFake(async ({ host, token }) => {
  await chooseAndLogIn(host, SIGN_TOKEN);
  for (const authToken of ["", "ä€😀", '{"a":[1,2]}\r\n', "x".repeat(200_000)]) {
    const { result } = await chooseFirst(host, { ...SIGN_TOKEN, authToken });
    const { data, dataLength } = (await token.calls("C_Sign")).at(-1).in;
    assert.deepEqual([data, dataLength], [hex(authToken), Buffer.byteLength(authToken)]);
    await world.judges.rsa(bytesOf(result), authToken, (await world.certificate()).pem);
  }
}));

test("A missing key is reported; the search stays active, so that the next lookup fails with its reason in the log", async (t) => {
  const certificates = [{ certificate: await world.certificate(), id: "1", key: false }];
  const { host, token } = await world.hostWithFake(t, { certificates });
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).result, "QMHost Error: Private Key NOT Found");
  assert.equal((await token.sequence()).at(-1), "C_FindObjects");
  assert.equal((await chooseFirst(host, SIGN_TOKEN)).result, FAILURE_PREFIX);
  const line = errorLine("GetTokenPvtKey - C_FindObjectsInit", CK.CKR_OPERATION_ACTIVE);
  const lines = await host.logLines();
  assert.ok(lines.includes(`Error in GetTokenPvtKey(): ${line}`));
  assert.ok(!lines.some((text) => text.startsWith("Sign Data Method:")));
  assert.deepEqual(await token.calls("C_SignInit"), []);
});

for (const [name, label] of [
  ["C_FindObjectsInit", "GetTokenPvtKey - C_FindObjectsInit"],
  ["C_FindObjects", "GetTokenPvtKey - C_FindObjects"],
  ["C_FindObjectsFinal", "GetTokenPvtKey - C_FindObjectsFinal"],
]) {
  test(`A failure of "${label}" leaves the reply's text empty and its reason in the log`, async (t) => {
    const nth = name === "C_FindObjects" ? 3 : 2; // after those of the list: one certificate and the end
    const { host } = await world.hostWithFake(t, { faults: [{ call: name, nth, rv: CK.CKR_DEVICE_REMOVED }] });
    assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).result, FAILURE_PREFIX);
    const line = errorLine(label, CK.CKR_DEVICE_REMOVED);
    assert.ok((await host.logLines()).includes(`Error in GetTokenPvtKey(): ${line}`));
  });
}

for (const name of ["C_SignInit", "C_Sign"]) {
  test(`A failure of ${name} is the reply of an authentication token, and the next signature succeeds`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: name, nth: 1, rv: CK.CKR_SESSION_HANDLE_INVALID }] });
    const text = `Error  in TokenSignData(): ${errorLine(name, CK.CKR_SESSION_HANDLE_INVALID)}`;
    assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).result, `${FAILURE_PREFIX}${text}`);
    assert.ok((await host.logLines()).includes(text));
    if (name === "C_SignInit") assert.equal((await chooseFirst(host, SIGN_TOKEN)).status_cd, 1);
  });
}

test("A signature of no bytes is a success without a signature", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_Sign", nth: 1, out: { length: 0 } }] });
  assert.deepEqual(await chooseAndLogIn(host, SIGN_TOKEN), { status_cd: 1, result: "", nonce: "" });
  assert.doesNotMatch(await host.logText(), /Error/);
});

for (const length of [1025, 2 ** 40, -1]) {
  test(`A signature of the nonsense length ${length} is a failure, not a crash`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: "C_Sign", nth: 1, out: { length } }] });
    const reply = await chooseAndLogIn(host, SIGN_TOKEN);
    assert.equal(reply.status_cd, 0);
    assert.equal(reply.result, "QMHost Error: Error  in TokenSignData(): C_Sign gives a signature above 1024 bytes");
    assert.equal((await chooseFirst(host, SIGN_TOKEN)).status_cd, 1);
  });
}

test("A token that was pulled fails each request, and the host goes on", async (t) => {
  const faults = ["C_FindObjectsInit", "C_FindObjects", "C_SignInit", "C_Sign"]
    .map((call) => ({ call, from: call === "C_FindObjects" ? 4 : 3, rv: CK.CKR_DEVICE_REMOVED }));
  const { host } = await world.hostWithFake(t, { faults });
  assert.equal((await chooseAndLogIn(host, SIGN_TOKEN)).status_cd, 1);
  for (let i = 0; i < 3; ++i) assert.equal((await chooseFirst(host, SIGN_TOKEN)).result, FAILURE_PREFIX);
  assert.deepEqual(await host.finish(), NORMAL_END);
});

for (const action of ["GSTReturnSign", "ITReturnSign", "SignAuthToken"]) {
  test(`Cancelling the window of ${action} is its answer, and nothing is signed`, withFake(async ({ host, token }) => {
    assert.equal((await cancelChoice(host, { action, hash: "aGFzaA==", authToken: "x", hashAlgorithm: "nonsense" })).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
    for (const call of ["C_Login", "C_SignInit", "C_Sign"]) assert.deepEqual(await token.calls(call), []);
  }));
}

test("A PDF request shows no window, not even when no certificate was ever chosen", withFake(async ({ host, token }) => {
  const certThumbPrint = (await world.certificate()).thumbprint;
  const { result } = await host.request({ action: "PdfSignFromToken", hash: "AAAA", certThumbPrint });
  assert.equal(result, `QMHost Error: Error  in GetPDFSignature(): Certificate not found in the token's certificate list: ${certThumbPrint}`);
  assert.deepEqual(await token.calls(), []);
  assert.ok(!(await host.logLines()).includes("Opening Select Certificate Dialog"));
}));

test("A PDF request asks for nothing but the PIN", withFake(async ({ host }) => {
  await chooseFirst(host, CHOOSE);
  const certThumbPrint = (await world.certificate()).thumbprint;
  host.send({ action: "PdfSignFromToken", hash: Buffer.alloc(32, 1).toString("base64"), certThumbPrint });
  await world.desktop.window(PIN_TITLE);
  assert.deepEqual(await world.desktop.windows(WINDOW_TITLE), []);
  await host.user.enterPin("1234");
  assert.equal((await host.reply()).status_cd, 1);
}));

test("A thumbprint is matched exactly, case included", withFake(async ({ host }) => {
  const { result } = await chooseFirst(host, CHOOSE);
  const certThumbPrint = JSON.parse(result).CertThumbPrint.toLowerCase();
  const reply = await host.request({ action: "PdfSignFromToken", hash: "AAAA", certThumbPrint });
  assert.equal(reply.result, `QMHost Error: Error  in GetPDFSignature(): Certificate not found in the token's certificate list: ${certThumbPrint}`);
}));

test("An unsupported hash algorithm is reported with the action's prefix, and the token is not asked", withFake(async ({ host, token }) => {
  const { result } = await chooseFirst(host, { action: "GSTReturnSign", hash: "x", hashAlgorithm: "MD5" });
  assert.equal(result, "QMHost Error: Error  in GetGSTReturnSignature(): Unsupported hash algorithm");
  assert.deepEqual(await token.calls("C_Login"), []);
}));

// The income-tax return: the key is looked for by the request's hash, and the digest is read as Base64 twice.

const digest = Buffer.from("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", "hex");
const digestTwice = Buffer.from(digest.toString("base64")).toString("base64");

/** The DigestInfo of SHA-256 as it is given to the token: without the NULL after the identifier. */
const digestInfo = Buffer.concat([Buffer.from("302f300b0609608648016503040201", "hex"), Buffer.from([0x04, 0x20]), digest]);

test("An income-tax return is signed by the key whose CKA_ID is the hash, as a DigestInfo without NULL", async (t) => {
  const certificate = await world.certificate();
  const { host, token } = await world.hostWithFake(t, { certificates: [
    { certificate: await world.certificate("other"), id: "other" },
    { certificate, id: digestTwice },
  ] });
  const request = { action: "ITReturnSign", hash: digestTwice };
  const first = await chooseAndLogIn(host, request); // chooses the other certificate, which changes nothing
  const second = await chooseFirst(host, { ...request, PAN: "ABCDE1234F" });
  assert.equal(first.result, second.result);

  const [{ in: given }] = await token.calls("C_Sign");
  assert.deepEqual([given.data, given.dataLength, given.length], [digestInfo.toString("hex"), 49, 1024]);
  const [{ in: init }] = await token.calls("C_SignInit");
  assert.deepEqual([init.mechanism, init.parameterIsNull, init.parameterLength], [CK.CKM_RSA_PKCS, true, 0]);
  const signature = bytesOf(first.result);
  assert.deepEqual(await world.judges.recover(signature, certificate.pem), digestInfo);
});

test("An income-tax return with a hash that is no CKA_ID is a missing key, whatever was chosen", withFake(async ({ host }) => {
  const request = { action: "ITReturnSign", hash: digestTwice, PAN: "ABCDE1234F" };
  assert.equal((await chooseAndLogIn(host, request)).result, "QMHost Error: Private Key NOT Found");
}));

test("An income-tax return with an unsupported hash fails after the key was found and before the token signs", async (t) => {
  const { host, token } = await world.hostWithFake(t, { certificates: [{ certificate: await world.certificate(), id: digestTwice }] });
  const request = { action: "ITReturnSign", hash: digestTwice, hashAlgorithm: "sha256" };
  const { result } = await chooseAndLogIn(host, request);
  assert.equal(result, "QMHost Error: Error  in GetITReturnSignature(): Unsupported hash algorithm");
  assert.ok((await host.logLines()).includes(`Trying to Get Private Key for CKA_ID: ${digestTwice}`));
  assert.equal((await token.sequence()).at(-1), "C_FindObjectsFinal");
});

test("A DigestInfo is signed up to its first zero byte", async (t) => {
  const withZero = Buffer.from(digest);
  withZero[10] = 0;
  const hash = Buffer.from(withZero.toString("base64")).toString("base64");
  const { host, token } = await world.hostWithFake(t, { certificates: [{ certificate: await world.certificate(), id: hash }] });
  await chooseAndLogIn(host, { action: "ITReturnSign", hash });
  assert.equal((await token.calls("C_Sign"))[0].in.dataLength, 17 + 10);
});

for (const [what, fault] of [
  ["fails", { call: "C_Sign", rv: CK.CKR_DEVICE_REMOVED }],
  ["gives nothing", { call: "C_Sign", out: { length: 0 } }],
  ["gives more than fits", { call: "C_Sign", out: { length: 2 ** 40 } }],
  ["refuses the key", { call: "C_SignInit", rv: CK.CKR_GENERAL_ERROR }],
]) {
  test(`A token that ${what} for an income-tax return is an empty response`, async (t) => {
    const { host } = await world.hostWithFake(t, {
      certificates: [{ certificate: await world.certificate(), id: digestTwice }], faults: [fault],
    });
    const { result } = await chooseAndLogIn(host, { action: "ITReturnSign", hash: digestTwice });
    assert.equal(result, "QMHost Error: Empty Response form method TokenSignHash()");
    assert.ok((await host.logLines()).includes("END TokenSign()"));
  });
}
