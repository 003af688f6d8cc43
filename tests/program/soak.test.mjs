// Twenty thousand requests of all kinds in one process: each has its reply, and neither memory nor descriptors pile up.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { readdir, readFile } from "node:fs/promises";
import { test } from "node:test";

import { bytesOf, CANCEL_TEXT, CHOOSE, chooseAndLogIn, FAILURE_PREFIX, NORMAL_END, User } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const REQUESTS = 20_000;
/** From here on memory may grow by `mostGrowth` KiB, and descriptors not at all. */
const WARM = 1_000;
const MOST_GROWTH = 1024;
const BETWEEN_WINDOWS = 200;

const TEXT = "to be signed";
const hash = createHash("sha256").update(TEXT).digest("base64");
const failed = (reason) => ({ status_cd: 0, result: `${FAILURE_PREFIX}${reason}` });
const SIGNED = { status_cd: 1 };

/** Answered without the user: a request, or the bytes of one, and what the reply must hold. */
function requestsWithoutWindow(certThumbPrint) {
  const pdf = { action: "PdfSignFromToken", hash, certThumbPrint };
  const large = "x".repeat(300_000);
  return [
    [pdf, SIGNED],
    [{ text: "short" }, failed("echo: short")],
    [{ ...pdf, hash: createHash("sha512").update(TEXT).digest("base64"), hashAlgorithm: "SHA-512" }, SIGNED],
    [{ action: "SignXML", xmlDoc: "<a/>", xmlSignParms: "{}" }, failed("Not Implimented.")],
    [{ ...pdf, certThumbPrint: "none" },
      failed("Error  in GetPDFSignature(): Certificate not found in the token's certificate list: none")],
    [{ text: large }, failed(`echo: ${large}`)],
    [{ ...pdf, hashAlgorithm: "MD5" }, failed("Error  in GetPDFSignature(): Unsupported hash algorithm")],
    ["{ this is no JSON", failed("echo: ")],
    [{ action: "NoSuchAction", text: "\u0928\u092e\u0938\u094d\u0924\u0947" }, failed("echo: \u0928\u092e\u0938\u094d\u0924\u0947")],
  ];
}

/** Answered by the user: a request, the button that is pressed, and what the reply must hold. */
const requestsWithWindow = [
  [{ action: "GSTReturnSign", hash: TEXT }, "ok", SIGNED],
  [CHOOSE, "ok", SIGNED],
  [{ action: "SignAuthToken", authToken: TEXT }, "ok", SIGNED],
  [{ action: "ITReturnSign", hash }, "ok", failed("Private Key NOT Found")],
  [{ action: "GSTReturnSign", hash: TEXT }, "cancel", failed(CANCEL_TEXT)],
];

/** Resident memory in KiB, to the page, and the number of open descriptors. */
async function footprint({ pid }) {
  const memory = await readFile(`/proc/${pid}/smaps_rollup`, "utf8");
  return { resident: Number(memory.match(/^Rss: +(\d+) kB$/m)[1]), descriptors: (await readdir(`/proc/${pid}/fd`)).length };
}

test("20,000 mixed requests: memory and descriptors stay what they were after the first 1,000", async (t) => {
  const token = await world.softToken(t);
  const host = await world.host(t, { token, settings: null });
  const user = new User(world.desktop);
  assert.equal((await chooseAndLogIn(host, { action: "SignAuthToken", authToken: TEXT })).status_cd, 1);
  const quick = requestsWithoutWindow((await world.certificate()).thumbprint);

  const marks = [];
  let lastPdf;
  for (let i = 1; i <= REQUESTS; ++i) {
    const isForUser = i % BETWEEN_WINDOWS === 0;
    const [request, button, expected] = isForUser
      ? requestsWithWindow[(i / BETWEEN_WINDOWS) % requestsWithWindow.length]
      : [quick[i % quick.length][0], null, quick[i % quick.length][1]];
    const nonce = typeof request === "string" ? "" : String(i);
    const reply = host.request(nonce ? { ...request, nonce } : request);
    if (isForUser) await user.answerUntil(reply, { button, pin: token.pin });
    const got = await reply;
    assert.deepEqual({ ...got, ...expected, nonce }, got, `request ${i}`);
    if (request === quick[0][0]) lastPdf = got.result;
    if (i % WARM === 0) marks.push(await footprint(host));
  }
  await world.judges.cms(bytesOf(lastPdf), { content: TEXT });
  assert.deepEqual(await host.finish(), NORMAL_END);

  const [first] = marks;
  const growth = Math.max(...marks.map(({ resident }) => resident)) - first.resident;
  console.error(`${REQUESTS} requests: ${first.resident} KiB after ${WARM}, then at most ${growth} KiB more; ` +
    `${first.descriptors} descriptors`);
  assert.ok(growth <= MOST_GROWTH, `KiB after each ${WARM} requests: ${marks.map(({ resident }) => resident).join(" ")}`);
  assert.deepEqual(new Set(marks.map(({ descriptors }) => descriptors)), new Set([first.descriptors]));
});
