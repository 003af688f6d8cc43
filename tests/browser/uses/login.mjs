// The example of a login, from the button in the page to the server that says whom it has let in.

import assert from "node:assert/strict";
import { copyFile, cp } from "node:fs/promises";
import { createServer } from "node:http";
import { join } from "node:path";
import { pathToFileURL } from "node:url";

import { loginServer } from "../../../packages/quillmark-verify/example/server.mjs";
import { root } from "../../lib/quillmark.mjs";

export function loginTests({ rig, browserTest, check }) {
  browserTest("a user logs in at the example's server with the certificate on the token", async (t) => {
    const cleanup = rig.world.cleanupOf(t);
    const folder = await cleanup.folder("login");
    await cp(join(root, "packages/quillmark-verify/example"), folder, { recursive: true });
    await copyFile(join(root, "extension/quillmark.js"), join(folder, "quillmark.js"));
    const port = await freePort();
    const site = `http://localhost:${port}`;
    const roots = rig.world.authority.own.bytes;
    const server = loginServer({ site, roots, revocation: "none", folder: pathToFileURL(`${folder}/`) });
    await new Promise((resolve) => server.listen(port, "localhost", resolve));
    cleanup.add(() => server.closeAllConnections());
    cleanup.add(() => server.close());

    await rig.allow(site);
    const page = await rig.page(t, { origin: site, path: "/index.html" });
    await page.bringToFront();
    await page.click("#login");
    const outcome = page.waitForFunction(() => document.getElementById("outcome").textContent).then((text) => text.jsonValue());
    assert.equal(await check(rig.user.chooseAndLogIn(outcome)), "Welcome, user");
    assert.deepEqual(await page.evaluate(async () => (await fetch("/me")).json()), { name: "user" });
  });
}

/** A port that nobody has. */
async function freePort() {
  const server = createServer();
  await new Promise((resolve) => server.listen(0, "localhost", resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}
