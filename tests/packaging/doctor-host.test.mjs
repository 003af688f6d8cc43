// The program through which the extension reaches the doctor, spoken to as a browser does.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { runUnchecked } from "../lib/kit.mjs";
import { Computer, GOOD_TOKENS } from "./lib/computer.mjs";

const frame = (text) => {
  const bytes = Buffer.from(text);
  const length = Buffer.alloc(4);
  length.writeUInt32LE(bytes.length);
  return Buffer.concat([length, bytes]);
};

function messagesIn(output) {
  const messages = [];
  for (let at = 0; at < output.length;) {
    const length = output.readUInt32LE(at);
    messages.push(JSON.parse(output.subarray(at + 4, at + 4 + length).toString()));
    at += 4 + length;
  }
  return messages;
}

async function laidOut(t, options) {
  const computer = await Computer.make(t, options);
  await computer.layOut();
  return computer;
}

/** What it answers to these bytes. A browser adds the caller, which counts for nothing here. */
async function answersTo(computer, input) {
  const command = join(computer.installed, "quillmark-doctor-host");
  const { code, stdout, stderr } = await runUnchecked(command, ["chrome-extension://any/"], { env: computer.env, input });
  assert.deepEqual({ code, stderr }, { code: 0, stderr: "" });
  return messagesIn(stdout);
}

/** Puts a script in the doctor's place. */
const useDoctor = (computer, script) => writeFile(join(computer.installed, "quillmark-doctor"), `#!/bin/sh\n${script}\n`, { mode: 0o755 });

test("Each message gets what the doctor finds and what the tokens hold, with its own nonce", async (t) => {
  const computer = await laidOut(t);
  const input = Buffer.concat([frame('{"nonce":"a"}'), frame('{"nonce":"b","pin":"1234","action":"sign"}')]);
  const [a, b] = await answersTo(computer, input);
  assert.deepEqual(Object.keys(a), ["nonce", "verdict", "findings", "tokens"]);
  assert.deepEqual(a.tokens, GOOD_TOKENS);
  assert.deepEqual([a.nonce, b.nonce], ["a", "b"]);
  assert.deepEqual(b, { ...a, nonce: "b" });
});

for (const [what, input] of [
  ["nothing", ""], ["half a length", Buffer.from([1, 0])], ["a message that is cut", frame('{"nonce":"a"}').subarray(0, 9)],
  ["no JSON", frame("sign this")], ["no object", frame('["a"]')], ["a message of 4 GiB", Buffer.from([255, 255, 255, 255])],
]) {
  test(`It ends without an answer, and without the doctor, on ${what}`, async (t) => {
    const computer = await laidOut(t);
    const trace = join(computer.folder, "started");
    await useDoctor(computer, `touch '${trace}'`);
    assert.deepEqual(await answersTo(computer, input), []);
    assert.ok(!existsSync(trace));
  });
}

test("Where the tokens are more than a browser takes, the findings come alone", async (t) => {
  const computer = await laidOut(t);
  await useDoctor(computer, `printf '{"verdict":"can","tokens":{"modules":["%1048576s"]},"findings":[1]}' x`);
  assert.deepEqual(await answersTo(computer, frame('{"nonce":"n"}')), [{ nonce: "n", verdict: "can", findings: [1], tokens: null }]);
});

for (const [what, script, problem] of [
  ["does not run", "exit 3", /^the doctor did not end well: /],
  ["says something else", "echo '{}'", /^the doctor did not end well: /],
  ["finds more than a browser takes", `printf '{"verdict":"can","tokens":null,"findings":["%1048576s"]}' x`, /more than can be shown/],
]) {
  test(`A doctor that ${what} is told as a problem`, async (t) => {
    const computer = await laidOut(t);
    await useDoctor(computer, script);
    const [{ nonce, problem: words }] = await answersTo(computer, frame('{"nonce":"n"}'));
    assert.equal(nonce, "n");
    assert.match(words, problem);
  });
}
