// docs/signatures.md: what it shows of each structure is what OpenSSL shows of one that was just made.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { test } from "node:test";

import { bytesOf, CHOOSE, chooseAndLogIn, chooseFirst, run, World } from "../lib/kit.mjs";
import { product } from "../lib/quillmark.mjs";
import { blocksOf } from "./lib/blocks.mjs";

const world = World.forThisFile(product);
const blocks = await blocksOf("docs/signatures.md");
const signer = () => world.certificate("Asha Rao", { email: "asha@example.com" });

test("A PDF signature looks as the document says", async (t) => {
  const host = await hostWithToken(t);
  await chooseFirst(host, CHOOSE);
  const digest = createHash("sha256").update("a document").digest();
  assert.ok(!digest.includes(0));
  const request = { action: "PdfSignFromToken", hash: digest.toString("base64"), certThumbPrint: (await signer()).thumbprint };
  host.send(request);
  await host.user.enterPin("1234");
  const signature = bytesOf(resultOf(await host.reply()));
  await world.judges.cms(signature, { content: Buffer.from("a document") });
  await looksAs("pdf", signature);
});

test("A signed text looks as the document says", async (t) => {
  const host = await hostWithToken(t);
  const signed = bytesOf(resultOf(await chooseAndLogIn(host, { action: "GSTReturnSign", hash: "a text" })));
  assert.equal((await world.judges.cms(signed)).toString(), "a text");
  await looksAs("text", signed);
});

test("What the signature of a token text holds looks as the document says", async (t) => {
  const host = await hostWithToken(t);
  const signature = bytesOf(resultOf(await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "a token" })));
  await world.judges.rsa(signature, Buffer.from("a token"), (await signer()).pem);
  await looksAs("token", await world.judges.recover(signature, (await signer()).pem));
});

test("What the signature of an income-tax return holds looks as the document says", async (t) => {
  const hash = "UVVKRA=="; // Base64 of "QUJD", which is Base64 of "ABC"
  const { host } = await world.hostWithFake(t, { certificates: [{ certificate: await signer(), id: hash }] });
  const signature = bytesOf(resultOf(await chooseAndLogIn(host, { action: "ITReturnSign", hash })));
  await looksAs("income-tax", await world.judges.recover(signature, (await signer()).pem));
});

async function hostWithToken(t) {
  return world.host(t, { token: await world.softToken(t, { pairs: [[await signer(), "a1b2c3"]] }) });
}

function resultOf({ status_cd: succeeded, result }) {
  assert.equal(succeeded, 1, result);
  return result;
}

/** Compares what openssl asn1parse says of the DER with the block of that name, but for places, lengths and random values. */
async function looksAs(name, der) {
  const { stdout } = await run("openssl", ["asn1parse", "-inform", "DER", "-i"], { input: der });
  const block = blocks.find(({ info }) => info === `text ${name}`);
  assert.ok(block, `no block "text ${name}"`);
  const pattern = block.content.trimEnd().split("\n").map((line) => (line.trim() === "…" ? "(.+\n)+" : `${quoted(outline(line))}\n`));
  const actual = stdout.toString().split("\n").filter(Boolean).map((line) => `${outline(line)}\n`).join("");
  assert.match(actual, new RegExp(`^${pattern.join("")}$`), `OpenSSL says:\n${stdout}`);
}

function outline(line) {
  return line.trimEnd().replace(/^ *\d+:d=(\d+) +hl=\d+ l= *\d+ /, "$1 ").replace(/(HEX DUMP\]:|INTEGER +:)[0-9A-F]{6,}…?$/, "$1")
    .replace(/(UTCTIME|GENERALIZEDTIME) +:.*/, "$1");
}

function quoted(text) {
  return text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
}
