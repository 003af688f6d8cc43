// From a request's members to the operation that they name.

import assert from "node:assert/strict";
import { test } from "node:test";

import { chooseAndLogIn, chooseFirst, CK, NORMAL_END, WINDOW_TITLE } from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const digest = Buffer.alloc(32, 0x5a).toString("base64");

for (const [rule, request, text] of [
  ["A request without an action is echoed as a failure", { text: "hello", nonce: "1" }, "hello"],
  ["Member names are matched exactly", { Action: "SignXML", TEXT: "x", Nonce: "1" }, ""],
  ["A text that is no string is echoed as its JSON text", { text: { b: [1, null] } }, '{"b":[1,null]}'],
]) {
  test(rule, withFake(async ({ host }) => {
    assert.deepEqual(await host.request(request), { status_cd: 0, result: `QMHost Error: echo: ${text}`, nonce: request.nonce ?? "" });
  }));
}

test("Actions are matched exactly: case, blanks and unknown names take the echo", withFake(async ({ host }) => {
  for (const action of ["gstreturnsign", "GSTReturnSign ", "", "Nothing", "SignXml"]) {
    assert.equal((await host.request({ action, text: action })).result, `QMHost Error: echo: ${action}`);
  }
  await world.desktop.windowGone(WINDOW_TITLE);
}));

test("SignXML fails with the same words whatever it is given, and touches no token", withFake(async ({ host, token }) => {
  for (const more of [{}, { xmlDoc: "<a/>", xmlSignParms: "x", hashAlgorithm: "nonsense" }]) {
    assert.equal((await host.request({ action: "SignXML", ...more })).result, "QMHost Error: Not Implimented.");
  }
  assert.deepEqual(await token.calls(), []);
}));

test("The hash algorithm is SHA256 when absent or empty, and loses its dashes but not its case", withFake(async ({ host, token }) => {
  const chosen = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "x" });
  assert.equal(chosen.status_cd, 1);
  const certThumbPrint = (await world.certificate()).thumbprint;
  const sign = (more) => host.request({ action: "PdfSignFromToken", hash: digest, certThumbPrint, ...more });
  const mechanism = async () => (await token.calls("C_SignInit")).at(-1).in.mechanism;

  for (const [hashAlgorithm, expected] of [
    [undefined, CK.CKM_SHA256_RSA_PKCS], ["", CK.CKM_SHA256_RSA_PKCS], ["SHA-256", CK.CKM_SHA256_RSA_PKCS],
    ["SHA-384", CK.CKM_SHA384_RSA_PKCS], ["-S-H-A-5-1-2-", CK.CKM_SHA512_RSA_PKCS],
  ]) {
    assert.equal((await sign({ hashAlgorithm })).status_cd, 1, hashAlgorithm);
    assert.equal(await mechanism(), expected, hashAlgorithm);
  }
  for (const hashAlgorithm of ["sha-256", "--", "SHA 256", "SHA256 "]) {
    const { result } = await sign({ hashAlgorithm });
    assert.equal(result, "QMHost Error: Error  in GetPDFSignature(): Unsupported hash algorithm", hashAlgorithm);
  }
}));

test("A request for a certificate ignores every other member", withFake(async ({ host }) => {
  const reply = await chooseFirst(host, {
    action: "GetSelCertFromToken", hashAlgorithm: "nonsense", hash: "?", certThumbPrint: "?", authToken: "?", PAN: "?",
  });
  assert.equal(reply.status_cd, 1);
}));

test("A PDF request without a thumbprint looks for the empty one", withFake(async ({ host }) => {
  const { result } = await host.request({ action: "PdfSignFromToken", hash: digest });
  assert.equal(result, "QMHost Error: Error  in GetPDFSignature(): Certificate not found in the token's certificate list: ");
}));

test("After a failed operation the next request is served", withFake(async ({ host }) => {
  const failed = await host.request({ action: "PdfSignFromToken", certThumbPrint: "00", nonce: "1" });
  assert.deepEqual([failed.status_cd, failed.nonce], [0, "1"]);
  assert.equal((await host.request({ text: "next", nonce: "2" })).nonce, "2");
}));

test("An exception that no operation knows is the reply of its request, and the next one is served", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_FindObjectsInit", nth: 1, throws: true }] });
  const text = "Error  in ProcessInMessage(): thrown by the module";
  assert.deepEqual(await host.request({ action: "GSTReturnSign", hash: "text", nonce: "1" }),
    { status_cd: 0, result: `QMHost Error: ${text}`, nonce: "1" });
  await world.desktop.windowGone(WINDOW_TITLE);
  assert.ok((await host.logLines()).includes(text));
  assert.equal((await chooseFirst(host, { action: "GetSelCertFromToken", nonce: "2" })).status_cd, 1);
});

test("The end of input after a reply ends the host, with nothing more written", withFake({}, { settings: null }, async ({ host }) => {
  await host.request({ text: "last" });
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.equal(await host.replyFrame(), null);
  assert.equal((await host.logLines()).at(-1), "Exiting ReadStdin Loop and Closing Host Application.");
}));
