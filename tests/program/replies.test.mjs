// What a reply looks like.

import assert from "node:assert/strict";
import { test } from "node:test";

import { CHOOSE, chooseFirst, frame } from "../lib/kit.mjs";
import { withFake } from "./lib/world.mjs";

test("A failure has status 0, the prefixed text and an empty nonce, in this order and compact", withFake(async ({ host }) => {
  host.send({ action: "SignXML" });
  assert.equal(await host.replyText(), '{"status_cd":0,"result":"QMHost Error: Not Implimented.","nonce":""}');
  const logged = (await host.logLines()).filter((line) => line === "QMHost Error: Not Implimented.");
  assert.equal(logged.length, 1);
}));

test("A failure's text is logged at DEBUG only", withFake({}, { settings: { AppLogLevel: 2 } }, async ({ host }) => {
  await host.request({ action: "SignXML" });
  assert.doesNotMatch(await host.logText(), /Not Implimented/);
}));

test("A success has status 1, its text and the nonce as a string, in this order", withFake(async ({ host }) => {
  host.send({ action: "GetSelCertFromToken", nonce: "17" });
  await host.user.clickOk();
  const text = await host.replyText();
  assert.match(text, /^\{"status_cd":1,"result":".*","nonce":"17"\}$/s);
  assert.deepEqual(Object.keys(JSON.parse(text)), ["status_cd", "result", "nonce"]);
}));

test("A result that is JSON itself is sent as one string", withFake(async ({ host }) => {
  const reply = await chooseFirst(host, CHOOSE);
  assert.equal(typeof reply.result, "string");
  assert.equal(JSON.parse(reply.result).CKA_ID, "01");
}));

test("The nonce comes back unchanged", withFake(async ({ host }, t) => {
  for (const nonce of ["", " ", "17", "ü/€\"\\\n\t\u0001", "n".repeat(10_000)]) {
    assert.equal((await host.request({ nonce })).nonce, nonce);
  }
}));

test("The nonce comes back from behind a million other members", withFake({}, { settings: null }, async ({ host }) => {
  const members = Array.from({ length: 1_000_000 }, (_, i) => `"m${i}":0`).join();
  host.sendBytes(frame(`{${members},"text":"many","nonce":"17"}`));
  assert.deepEqual(await host.reply(), { status_cd: 0, result: "QMHost Error: echo: many", nonce: "17" });
}));

test("A nonce that is no string comes back as its JSON text", withFake(async ({ host }) => {
  for (const [nonce, text] of [[17, "17"], [true, "true"], [null, "null"], [{ a: [1, "b"] }, '{"a":[1,"b"]}']]) {
    assert.equal((await host.request({ nonce })).nonce, text);
  }
}));

test("Slashes and letters beyond ASCII are not escaped", withFake(async ({ host }) => {
  host.send({ text: "https://example.com/ä" });
  assert.match(await host.replyText(), /https:\/\/example\.com\/ä/);
}));
