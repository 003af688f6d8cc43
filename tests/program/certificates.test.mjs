// Reading the token's certificates: the calls, the records and the cards.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import {
  bytesOf, cancelChoice, CHOOSE, chooseAndLogIn, chooseFirst, CK, contentOf, errorLine, NORMAL_END, parseDer,
  WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const NO_CERTIFICATE = "Can't find X.509 Certificate in Token";

/** The records that the host has logged while it read the token, as objects. */
async function loggedRecords(host) {
  const lines = await host.logLines();
  const reading = lines.slice(0, lines.findIndex((line) => line.endsWith(" items Loaded in Certificate List.")));
  return reading.filter((line) => line.includes('"ChainCert"')).map((line) => JSON.parse(line));
}

test("The search asks for X.509 certificates on the token, with numbers of four bytes", withFake(async ({ host, token }) => {
  await chooseFirst(host, CHOOSE);
  const [{ in: given }] = await token.calls("C_FindObjectsInit");
  assert.deepEqual([given.count, given.template], [3, [
    { type: CK.CKA_CLASS, length: 4, value: "01000000" },
    { type: CK.CKA_CERTIFICATE_TYPE, length: 4, value: "00000000" },
    { type: CK.CKA_TOKEN, length: 1, value: "01" },
  ]]);
}));

test("Objects are read one by one: length first, then the bytes", async (t) => {
  const certificate = await world.certificate();
  const { host, token } = await world.hostWithFake(t, {
    certificates: [{ certificate, id: "first", key: false }, { certificate, id: "2", key: false }],
  });
  await chooseFirst(host, CHOOSE);
  const reading = (await token.sequence()).slice(4);
  const object = ["C_FindObjects", "C_GetAttributeValue", "C_GetAttributeValue"];
  assert.deepEqual(reading, ["C_FindObjectsInit", ...object, ...object, "C_FindObjects", "C_FindObjectsFinal"]);
  for (const { in: given } of await token.calls("C_FindObjects")) assert.deepEqual([given.max, given.count], [1, 0]);

  const [sizing, reading1] = (await token.calls("C_GetAttributeValue")).map((call) => call.in);
  assert.deepEqual(sizing.template, [
    { type: CK.CKA_VALUE, length: 0, value: null },
    { type: CK.CKA_ID, length: 0, value: null },
  ]);
  const zeros = (count) => "00".repeat(count);
  const size = certificate.bytes.length;
  assert.deepEqual(reading1.template, [
    { type: CK.CKA_VALUE, length: size, value: zeros(size) },
    { type: CK.CKA_ID, length: 5, value: zeros(5) },
  ]);
});

test("The record says what the certificate says", async (t) => {
  const certificate = await world.certificate("Anna Öz", {
    subject: "/C=IN/O=Company, Ltd/CN=Anna Öz", email: "anna@example.com", from: "20240209000000Z", to: "20280309123456Z",
  });
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "key-1" }] });
  const record = JSON.parse((await chooseFirst(host, CHOOSE)).result);

  const [tbs] = (await parseDer(certificate.bytes)).children;
  const [, keyBits] = tbs.children[6].children;
  assert.deepEqual(Object.entries(record), [
    ["SelCertSubject", "C=IN, O=Company\\, Ltd, CN=Anna Öz"],
    ["CertThumbPrint", certificate.thumbprint],
    ["eMail", "anna@example.com"],
    ["ValidFrom", "2024-02-09T00:00:00Z"],
    ["ExpDate", "Thu, 09 Mar 2028 12:34:56 GMT"],
    ["PublicKey", contentOf(keyBits).subarray(1).toString("base64")], // behind the count of unused bits
    ["Cert", certificate.bytes.toString("base64")],
    ["ChainCert", false],
    ["CKA_ID", "key-1"],
  ]);
});

test("A certificate without an e-mail address has an empty one", async (t) => {
  const certificate = await world.certificate("no-mail", { email: null });
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "1" }] });
  const record = JSON.parse((await chooseFirst(host, CHOOSE)).result);
  assert.equal(record.eMail, "");
  assert.match(await host.logText(), /<b>no-mail<\/b>&nbsp;\(\)<\/span>/);
});

test("Of one user's and two CA certificates one is offered and three are listed", async (t) => {
  const authority = world.authority.own;
  const { host } = await world.hostWithFake(t, { certificates: [
    { certificate: authority, id: "ca1", key: false },
    { certificate: await world.certificate(), id: "user" },
    { certificate: authority, id: "ca2", key: false },
  ] });
  assert.equal(JSON.parse((await chooseFirst(host, CHOOSE)).result).CKA_ID, "user");
  assert.deepEqual((await loggedRecords(host)).map((record) => [record.CKA_ID, record.ChainCert]),
    [["ca1", true], ["user", false], ["ca2", true]]);
  assert.ok((await host.logLines()).includes("1 items Loaded in Certificate List."));
});

test("What a certificate may be used for decides whether it is offered", async (t) => {
  const usages = { both: "digitalSignature,nonRepudiation", sign: "digitalSignature", repudiation: "nonRepudiation",
    chain: "keyCertSign,cRLSign", none: null, encipher: "keyEncipherment" };
  const certificates = [];
  for (const [name, usage] of Object.entries(usages)) {
    certificates.push({ certificate: await world.certificate(`usage-${name}`, { usage }), id: name, key: false });
  }
  const { host } = await world.hostWithFake(t, { certificates });
  await chooseFirst(host, CHOOSE);
  const chain = (await loggedRecords(host)).filter((record) => record.ChainCert).map((record) => record.CKA_ID);
  assert.deepEqual(chain, ["chain", "none"]);
});

test("Only CA certificates: the list is empty, each is listed, and the log does not call the token empty", async (t) => {
  const certificates = [{ certificate: world.authority.own, id: "ca", key: false }];
  const { host } = await world.hostWithFake(t, { certificates });
  await cancelChoice(host, CHOOSE);
  const lines = await host.logLines();
  assert.ok(lines.includes("0 items Loaded in Certificate List."));
  assert.ok(!lines.includes(NO_CERTIFICATE));
  assert.equal((await loggedRecords(host)).length, 1);
});

test("A token without a certificate is empty, and the log says so", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: [] }, { settings: { AppLogLevel: 2 } });
  await cancelChoice(host, CHOOSE);
  assert.ok((await host.logLines()).includes(NO_CERTIFICATE));
});

test("A second reading starts from scratch", async (t) => {
  const certificates = [{ certificate: world.authority.own, id: "ca", key: false }];
  const { host, token } = await world.hostWithFake(t, { certificates });
  for (let i = 0; i < 2; ++i) {
    await cancelChoice(host, CHOOSE);
  }
  assert.equal((await token.calls("C_FindObjectsInit")).length, 2);
  assert.equal((await token.calls("C_OpenSession")).length, 1);
  const lines = await host.logLines();
  assert.equal(lines.filter((line) => line === "0 items Loaded in Certificate List.").length, 2);
});

test("A CKA_ID is text up to its first zero byte", async (t) => {
  const certificates = [{ certificate: await world.certificate(), id: Buffer.from("ab\0cd"), key: false }];
  const { host } = await world.hostWithFake(t, { certificates });
  assert.equal(JSON.parse((await chooseFirst(host, CHOOSE)).result).CKA_ID, "ab");
  assert.ok((await host.logLines()).includes("CKA_ID: ab"));
});

test("A certificate with an empty CKA_ID is offered, and choosing it is an empty answer", async (t) => {
  const certificates = [{ certificate: await world.certificate(), id: "" }];
  const { host } = await world.hostWithFake(t, { certificates });
  const reply = await chooseFirst(host, CHOOSE);
  assert.equal(reply.result, "QMHost Error: Select Certificate Response Empty.");
  assert.equal((await loggedRecords(host))[0].CKA_ID, "");
});

test("A binary CKA_ID reaches the key search byte for byte, and the browser as valid UTF-8", async (t) => {
  const id = Buffer.from("ff80c3280a1fd1e2f3", "hex");
  const certificate = await world.certificate();
  const { host, token } = await world.hostWithFake(t, { certificates: [{ certificate, id }] });
  host.send(CHOOSE);
  await host.user.clickOk();
  assert.match(JSON.parse((await host.reply()).result).CKA_ID, /\ufffd/);

  const signed = await chooseAndLogIn(host, { action: "GSTReturnSign", hash: "text" });
  assert.equal(signed.status_cd, 1);
  const search = (await token.calls("C_FindObjectsInit")).at(-1).in.template;
  assert.deepEqual(search.at(-1), { type: CK.CKA_ID, length: id.length + 1, value: `${id.toString("hex")}00` });
  await world.judges.cms(bytesOf(signed.result));
});

test("A certificate that does not parse is a row with the reason, and its record holds only that", async (t) => {
  const garbage = join(world.folder, "garbage.der");
  await writeFile(garbage, "no certificate");
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate: { der: garbage }, id: "x", key: false }] });
  const record = JSON.parse((await chooseFirst(host, CHOOSE)).result);
  assert.deepEqual(Object.keys(record), ["ErrMsg", "ChainCert", "CKA_ID"]);
  assert.notEqual(record.ErrMsg, "");
  assert.match(await host.logText(), /QMHostError: ./);
});

test("A subject that is HTML opens nothing and stops nothing", async (t) => {
  const subject = "/C=IN/O=<img src='file:/etc/hostname'><a href='http:example.com'>/CN=<h1>Big</b></div><table><tr>";
  const certificate = await world.certificate("html", { subject: subject.replaceAll("='file:/etc", "='file:\\/etc")
    .replace("etc/hostname", "etc\\/hostname").replace("</b></div>", "<\\/b><\\/div>") });
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate, id: "h" }] });
  host.send(CHOOSE);
  await host.user.clickOk();
  assert.equal(JSON.parse((await host.reply()).result).CKA_ID, "h");
  assert.deepEqual(await world.desktop.windows(".*"), []);
});

for (const [name, label] of [
  ["C_FindObjectsInit", "BuildTokenCertList - C_FindObjectsInit"],
  ["C_FindObjects", "BuildTokenCertList - C_FindObjects"],
  ["C_FindObjectsFinal", "BuildTokenCertList - C_FindObjectsFinal"],
  ["C_GetAttributeValue", "BuildTokenCertList - C_GetAttributeValue for Sizing"],
  ["C_GetAttributeValue", "BuildTokenCertList - C_GetAttributeValue"],
]) {
  test(`A failure of "${label}" is reported with its label, and the window is hidden`, async (t) => {
    const nth = label.endsWith("C_GetAttributeValue") ? 2 : 1;
    const { host } = await world.hostWithFake(t, { faults: [{ call: name, nth, rv: CK.CKR_DEVICE_REMOVED }] });
    const line = errorLine(label, CK.CKR_DEVICE_REMOVED);
    const { result } = await host.request(CHOOSE);
    assert.equal(result, `QMHost Error: Error  in GetSelCertFromToken(): ${line}`);
    await world.desktop.windowGone(WINDOW_TITLE);
    assert.ok((await host.logLines()).includes(`Error  in GetTokenCertList(): ${line}`));
    assert.equal((await host.request({ text: "on" })).result, "QMHost Error: echo: on");
  });
}

test("A search that broke off stays active, so that the next one fails", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetAttributeValue", nth: 1, rv: CK.CKR_GENERAL_ERROR }] });
  await host.request(CHOOSE);
  const line = errorLine("BuildTokenCertList - C_FindObjectsInit", CK.CKR_OPERATION_ACTIVE);
  assert.equal((await host.request(CHOOSE)).result, `QMHost Error: Error  in GetSelCertFromToken(): ${line}`);
});

test("A failure in another action's selection bears that action's prefix", async (t) => {
  const prefixes = { GSTReturnSign: "Error  in GetGSTReturnSignature(): ", ITReturnSign: "Error  in GetITReturnSignature(): ",
    SignAuthToken: "Error  in SignAuthToken(): " };
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_FindObjectsInit", rv: CK.CKR_DEVICE_REMOVED }] });
  for (const [action, prefix] of Object.entries(prefixes)) {
    const line = errorLine("BuildTokenCertList - C_FindObjectsInit", CK.CKR_DEVICE_REMOVED);
    assert.equal((await host.request({ action })).result, `QMHost Error: ${prefix}${line}`);
  }
});

test("More objects than asked for end the reading", async (t) => {
  const { host, token } = await world.hostWithFake(t, { faults: [{ call: "C_FindObjects", nth: 2, out: { count: 5 } }] });
  assert.equal((await chooseFirst(host, CHOOSE)).status_cd, 1);
  assert.deepEqual((await token.sequence()).slice(-2), ["C_FindObjects", "C_FindObjectsFinal"]);
});

for (const nth of [1, 2]) {
  for (const attribute of ["CKA_VALUE", "CKA_ID"]) {
    for (const length of [-1, 2 ** 40, 2 ** 32 + 1]) {
      test(`The nonsense length ${length} of ${attribute} at call ${nth} is a failure, not a crash`, async (t) => {
        const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetAttributeValue", nth, out: { [attribute]: length } }] });
        const reply = await host.request(CHOOSE);
        assert.equal(reply.status_cd, 0);
        assert.match(reply.result, /^QMHost Error: Error {2}in GetSelCertFromToken\(\): /);
        assert.deepEqual(await host.finish(), NORMAL_END);
      });
    }
  }
}

test("An empty CKA_VALUE is a certificate that does not parse", async (t) => {
  const { host } = await world.hostWithFake(t, { faults: [{ call: "C_GetAttributeValue", out: { CKA_VALUE: 0 } }] });
  const record = JSON.parse((await chooseFirst(host, CHOOSE)).result);
  assert.deepEqual(Object.keys(record), ["ErrMsg", "ChainCert", "CKA_ID"]);
});
