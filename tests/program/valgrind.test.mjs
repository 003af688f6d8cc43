// Memory, watched by valgrind: no error of any kind, but for those that tests/sanitizers/valgrind.supp gives a reason for.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

import { bytesOf, CHOOSE, NORMAL_END } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const SLOW = { timeout: 240_000 };

const suppressions = fileURLToPath(new URL("../sanitizers/valgrind.supp", import.meta.url));

/** Holds that valgrind finds nothing in a host, from its start to its end, that is led through `steps(host)`. */
function staysClean(when, steps) {
  test(`Valgrind finds no error ${when}`, async (t) => {
    const { host, errors } = await watchedHost(t);
    await steps(host);
    assert.deepEqual(await host.finish(SLOW), NORMAL_END);
    assert.deepEqual(await errors(), []);
  });
}

/** A host under valgrind, and the errors that it has made until its end: [{ kind, frames }]. */
async function watchedHost(t) {
  const report = join(await world.cleanupOf(t).folder("valgrind"), "report.xml");
  const { host } = await world.hostWithFake(t, {}, {
    wrapper: ["valgrind", "--xml=yes", `--xml-file=${report}`, `--suppressions=${suppressions}`, "--num-callers=60",
      "--leak-check=no", "--child-silent-after-fork=yes"],
    env: { G_SLICE: "always-malloc" },
  });
  return { host, errors: async () => errorsIn(await readFile(report, "utf8")) };
}

function errorsIn(xml) {
  assert.match(xml, /<\/valgrindoutput>/, "valgrind came to the end of its report");
  return [...xml.matchAll(/<error>.*?<\/error>/gs)].map(([error]) => {
    const [, kind] = error.match(/<kind>(.*?)<\/kind>/);
    const [stack] = error.match(/<stack>.*?<\/stack>/s);
    const frames = [...stack.matchAll(/<frame>.*?<\/frame>/gs)].map(([frame]) => frame.match("<fn>(.*?)</fn>")?.[1] ?? "?");
    return { kind, frames };
  }).filter(({ kind }) => !kind.startsWith("Leak_")); // the sanitizers look for leaks
}

staysClean("when the input is at its end at the start", () => {});

staysClean("in one echo", async (host) => {
  assert.equal((await host.request({ text: "hello" }, SLOW)).result, "QMHost Error: echo: hello");
});

staysClean("in one signature, with the window and the PIN dialog", async (host) => {
  await host.request({}, SLOW); // from now on the window of the start is hidden
  host.send({ action: "GSTReturnSign", hash: "text" });
  await host.user.clickOk(SLOW);
  await host.user.enterPin("1234", SLOW);
  const { result } = await host.reply(SLOW);
  assert.equal((await world.judges.cms(bytesOf(result))).toString(), "text");
});

staysClean("in a cancelled window, a failed signature and a PDF", async (host) => {
  await host.request({}, SLOW); // from now on the window of the start is hidden
  host.send(CHOOSE);
  await host.user.clickCancel(SLOW);
  await host.reply(SLOW);
  await host.request({ action: "PdfSignFromToken", certThumbPrint: "none", hash: "AAAA" }, SLOW);
  host.send({ action: "SignAuthToken", authToken: "x" });
  await host.user.clickOk(SLOW);
  await host.user.cancelPin(SLOW);
  assert.equal((await host.reply(SLOW)).result, "QMHost Error: ");
});
