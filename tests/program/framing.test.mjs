// Frames on the pipe: four bytes of length, then as many bytes of text.

import assert from "node:assert/strict";
import { test } from "node:test";

import { CLOSING_TEXT, frame, NORMAL_END, prefix } from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

/** What the host logs after it has begun to read. */
async function logOfReading(host) {
  const lines = await host.logLines();
  return lines.slice(lines.indexOf("In ReadStdin()"));
}

for (const [what, length] of [["A length of zero", 0], ["A negative length", -1]]) {
  test(`${what} ends the host`, withFake(async ({ host }) => {
    host.sendBytes(prefix(length));
    assert.deepEqual(await host.exit(), NORMAL_END);
    assert.equal(await host.replyFrame(), null);
    assert.deepEqual(await logOfReading(host), ["In ReadStdin()", "after iSize == 4", `BUFFER LEN ${length}`, CLOSING_TEXT]);
  }));
}

test("Half a length prefix ends the host and logs nothing of it", withFake(async ({ host }) => {
  host.sendBytes(Buffer.from([1, 0]));
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.deepEqual(await logOfReading(host), ["In ReadStdin()", CLOSING_TEXT]);
}));

for (const [rule, bytes, text, nonce = ""] of [
  ["A body shorter than its length is parsed as far as it came", [prefix(10), Buffer.from("{}    ")], ""],
  ["A short body with a whole request in it is served", [prefix(1000), Buffer.from('{"text":"hi","nonce":"7"}')], "hi", "7"],
  ["The text ends at its first zero byte", [frame(Buffer.from('{"text":"a"}\0{"text":"b"}'))], "a"],
  ["The largest length below 2^28 is served", [prefix(2 ** 28 - 1), Buffer.from('{"text":"last"}')], "last"],
]) {
  test(rule, withFake(async ({ host }) => {
    host.sendBytes(Buffer.concat(bytes));
    host.endInput();
    assert.deepEqual(await host.reply(), { status_cd: 0, result: `QMHost Error: echo: ${text}`, nonce });
    assert.equal((await host.exit()).code, 0);
  }));
}

test("A body that is no JSON is answered like a request without an action", withFake(async ({ host }) => {
  host.sendBytes(frame("hello"));
  assert.deepEqual(await host.reply(), { status_cd: 0, result: "QMHost Error: echo: ", nonce: "" });
  const lines = await logOfReading(host);
  assert.deepEqual(lines.slice(2, 5), ["BUFFER LEN 5", "after iLen > 0", "hello"]);
}));

test("A reply of 300 bytes is preceded by 2C 01 00 00", withFake(async ({ host }) => {
  const empty = '{"status_cd":0,"result":"QMHost Error: echo: ","nonce":""}';
  host.send({ text: "x".repeat(300 - empty.length) });
  const reply = await host.replyFrame();
  assert.deepEqual([...reply.subarray(0, 4)], [0x2c, 0x01, 0x00, 0x00]);
  assert.equal(reply.length, 304);
}));

test("The length counts bytes of UTF-8, not characters", withFake(async ({ host }) => {
  host.send({ text: "ü€😀" });
  const reply = await host.replyFrame();
  assert.equal(reply.subarray(4).toString(), '{"status_cd":0,"result":"QMHost Error: echo: ü€😀","nonce":""}');
  assert.equal(reply.readUInt32LE(), reply.length - 4);
}));

test("Requests that arrive at once, or byte by byte, are answered one after another", withFake(async ({ host }) => {
  const nonces = Array.from({ length: 200 }, (_, i) => String(i));
  host.sendBytes(Buffer.concat(nonces.map((nonce) => frame({ nonce }))));
  for (const nonce of nonces) assert.equal((await host.reply()).nonce, nonce);
  for (const byte of frame({ nonce: "slow" })) host.sendBytes(Buffer.from([byte]));
  assert.equal((await host.reply()).nonce, "slow");
}));

test("A message of 16 MiB comes back whole", withFake({}, { settings: null }, async ({ host }) => {
  const text = "0123456789abcdef".repeat(1 << 20);
  const { result } = await host.request({ text });
  assert.ok(result === `QMHost Error: echo: ${text}`);
}));

test("A length of 2^28 is logged as an exception and ends the host", withFake({}, { settings: { AppLogLevel: 3 } }, async ({ host }) => {
  host.sendBytes(prefix(2 ** 28));
  assert.deepEqual(await host.exit(), NORMAL_END);
  assert.equal(await host.replyFrame(), null);
  const complaints = (await host.logLines()).filter((line) => line.includes(String(2 ** 28)));
  assert.equal(complaints.length, 1);
}));

test("Deep nesting, broken UTF-8 and stray bytes are answered, and the next request is served", async (t) => {
  const { host } = await world.hostWithFake(t, {}, { settings: null });
  const bodies = [
    "[".repeat(200_000),
    `{"a":${"[".repeat(200_000)}${"]".repeat(200_000)}}`,
    `${'{"a":'.repeat(200_000)}1${"}".repeat(200_000)}`,
    Buffer.from([0x7b, 0x22, 0xff, 0xfe, 0x22, 0x3a, 0x31, 0x7d]),
    '{"text":"unfinished',
    "[1,2]",
    "null",
    '{"text":1e999}',
  ];
  for (const body of bodies) {
    host.sendBytes(frame(body));
    assert.match((await host.reply()).result, /^QMHost Error: echo: /);
  }
  assert.equal((await host.request({ text: "still here" })).result, "QMHost Error: echo: still here");
});
