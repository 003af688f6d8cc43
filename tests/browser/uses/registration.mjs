// Registration, and the browser's end.

import assert from "node:assert/strict";
import { readFile, rename, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { ask, askWithoutGesture, codeOf, run } from "../../lib/browser-kit.mjs";

import { root } from "../../lib/quillmark.mjs";

export function registrationTests({ name, rig, browserTest, allowedPage }) {
  browserTest("a program that is registered for another extension is refused", async (t) => {
    const manifest = rig.program.manifest(name);
    const original = await readFile(manifest, "utf8");
    t.after(() => writeFile(manifest, original));
    await writeFile(manifest, original.replace(/benpbcl/, "aaaaaaa").replace(/extension@/, "another@"));
    const page = await allowedPage(t);
    const expected = name === "chromium" ? "HOST_FORBIDDEN" : "HOST_MISSING"; // Firefox does not tell them apart
    assert.equal(codeOf(await ask(page, "selectCertificate")), expected);
  });

  browserTest("a program that is missing from its place, or ends at once, is told", async (t) => {
    const page = await allowedPage(t);
    const program = join(rig.program.folder, "QMChromeExtHost");
    await rename(program, `${program}-away`);
    t.after(() => rename(`${program}-away`, program));
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_EXITED"); // the launcher starts, and ends
    const launcher = join(rig.program.folder, "quillmark-host");
    await rename(launcher, `${launcher}-away`);
    t.after(() => rename(`${launcher}-away`, launcher));
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_MISSING");
  });

  browserTest("a browser that is killed takes the host with it within 3 seconds, with its window open once that is answered", async (t) => {
    const page = await allowedPage(t);
    assert.equal((await askWithoutGesture(page, "status", [], { checkHost: true })).value.host, "running");
    rig.browser.process().kill("SIGKILL");
    await rig.program.gone({ timeout: 3_000 });
    await rig.startBrowser();

    const request = ask(await allowedPage(t), "selectCertificate");
    request.catch(() => {});
    await rig.user.certificateWindow();
    rig.browser.process().kill("SIGKILL");
    await rig.user.cancel(rig.program.gone());
    await rig.startBrowser();
  });

  browserTest("the demo signs a PDF document by itself, and pdfsig accepts it", async () => {
    const { stdout } = await run("node", [join(root, "tools/demo-browser.mjs"), name, "--auto"], { timeout: 180_000 });
    assert.match(stdout.toString(), /PDF signed: pdfsig says that the signature is valid/);
  });

  browserTest("without a registration the host is HOST_MISSING, also after an uninstall", async (t) => {
    const page = await allowedPage(t);
    t.after(() => rig.program.install());
    await rm(rig.program.manifest(name));
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_MISSING");
    assert.equal(codeOf(await askWithoutGesture(page, "status", [], { checkHost: true })), "HOST_MISSING");
    await rig.program.install();
    const outcome = await rig.user.choose(ask(page, "selectCertificate"));
    assert.equal(outcome.value.CertThumbPrint, rig.certificate.thumbprint);
    await page.close();
    await rig.program.gone();
    await rig.program.install("--uninstall");
    assert.equal(codeOf(await ask(await allowedPage(t), "selectCertificate")), "HOST_MISSING");
  });
}
