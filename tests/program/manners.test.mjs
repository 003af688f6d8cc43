// Modules that write where they should not: to standard output, which the browser reads as frames.

import assert from "node:assert/strict";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { CHOOSE, chooseAndLogIn, chooseFirst, FAILURE_PREFIX, NORMAL_END } from "../lib/kit.mjs";
import { fakes, product } from "../lib/quillmark.mjs";
import { asUser, privateToken } from "../lib/token/private-token.mjs";
import { world } from "./lib/world.mjs";

/** A host with this module behind the driver. */
async function hostWith(t, module, { wrapper = [] } = {}) {
  const folder = await world.cleanupOf(t).folder("module");
  const token = await privateToken(folder, [`module: ${join(fakes, "driver", module)}.so`], { pin: "1234" });
  return world.host(t, { token, wrapper: [...asUser, ...wrapper] });
}

/** A list, a login, two signatures and the end: each reply is a frame, each signature verifies, and nothing else comes. */
async function assertRepliesAreWhole(host) {
  const chosen = await chooseFirst(host, CHOOSE);
  assert.equal(chosen.status_cd, 1, chosen.result);
  const certificate = join(world.folder, "module.pem");
  await writeFile(certificate, `-----BEGIN CERTIFICATE-----\n${JSON.parse(chosen.result).Cert}\n-----END CERTIFICATE-----\n`);
  for (const [ask, text] of [[chooseAndLogIn, "first"], [chooseFirst, "second"]]) {
    const signed = await ask(host, { action: "SignAuthToken", authToken: text, nonce: text });
    assert.deepEqual([signed.status_cd, signed.nonce], [1, text], signed.result);
    await world.judges.rsa(Buffer.from(signed.result, "base64"), text, certificate);
  }
  assert.equal((await host.request({ text: "last" })).result, `${FAILURE_PREFIX}echo: last`);
  assert.deepEqual(await host.finish(), NORMAL_END);
  assert.equal(await host.replyFrame(), null);
  assert.equal(host.outputRest.toString(), "", "something else than frames was written");
}

const WHEREVER = {
  "as it starts, sees a token and ends": ["writes-to-stdout", "module: hello"],
  "in C_Sign": ["writes-to-stdout-when-it-signs", "module: signs"],
  "in C_FindObjects": ["writes-to-stdout-when-it-finds", "module: finds"],
  "from a thread": ["writes-to-stdout-from-a-thread", "module: still here"],
  "from a signal handler": ["writes-to-stdout-from-a-signal-handler", "module: tick"],
  "from an exit handler": ["writes-to-stdout-at-exit", "module: goodbye"],
};

for (const [where, [module, words]] of Object.entries(WHEREVER)) {
  test(`A module that writes to standard output ${where} writes to standard error, and no reply is touched`, async (t) => {
    const host = await hostWith(t, module);
    await assertRepliesAreWhole(host);
    assert.ok(host.errors.includes(words), host.errors);
  });
}

test("Without standard error, what a module writes to standard output goes nowhere", async (t) => {
  const host = await hostWith(t, "writes-to-stdout-from-a-thread", { wrapper: ["sh", "-c", 'exec "$@" 2>&-', "sh"] });
  await assertRepliesAreWhole(host);
});

test("Started without standard output, the host serves and ends with its input, and writes its replies nowhere", async (t) => {
  for (const closed of [">&-", ">&- 2>&-"]) {
    const host = await hostWith(t, "works", { wrapper: ["sh", "-c", `exec "$@" ${closed}`, "sh"] });
    host.send({ text: "nobody hears the answer" });
    assert.deepEqual(await host.finish(), NORMAL_END);
    assert.equal(await host.replyFrame(), null);
    assert.equal(host.outputRest.toString(), "");
    assert.ok((await host.logLines()).includes(`${FAILURE_PREFIX}echo: nobody hears the answer`));
    assert.doesNotMatch(await host.logText(), /[^ -~\n]/);
  }
});
