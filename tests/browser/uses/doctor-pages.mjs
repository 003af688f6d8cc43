// The doctor in the browser: the extension's own pages show what is wrong and what helps, and no page reaches it.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { rename, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";

import { ask, codeOf, gesture, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { openRawChannel } from "../lib/attacker.mjs";

/** The name in the certificate that the rig has on its token. */
const COMMON_NAME = "CN=user";

const textsIn = (id) => [...document.getElementById(id).children].map(({ textContent }) => textContent);

export function doctorPageTests({ rig, browserTest }) {
  const settings = (body, ...args) => rig.extension.settings(body, ...args);
  const says = (pattern) => waitFor(`the words ${pattern}`, async () => {
    const words = await settings(() => document.getElementById("diagnosis").textContent);
    return pattern.test(words) && words;
  });

  async function openSettings(t) {
    await rig.page(t);
    const window = await rig.user.browserWindow("Test page");
    await rig.user.openTab(window, `${rig.browser.extensionUrl}/options/options.html`, "Quillmark - Settings");
    return window;
  }

  const press = async (window, id) => {
    await settings((wanted) => document.getElementById(wanted).focus(), id);
    await rig.user.press(window, "Return");
  };

  /** Puts a program in the doctor's place that leaves a trace; gives the trace's file. */
  async function traceDoctor(t) {
    const [doctor, trace] = ["quillmark-doctor-host", "doctor-was-started"].map((name) => join(rig.program.folder, name));
    await rename(doctor, `${doctor}-away`);
    t.after(async () => {
      await rename(`${doctor}-away`, doctor);
      await rm(trace, { force: true });
    });
    await writeFile(doctor, `#!/bin/sh\ntouch '${trace}'\n`, { mode: 0o755 });
    return trace;
  }

  browserTest("the settings page shows the tokens and what is wrong, and gives a report without names", async (t) => {
    const window = await openSettings(t);
    await press(window, "examine");
    await says(/^A signature can be made, as far as can be seen\. \d+ things are in order\.$/);
    const tokens = await settings(textsIn, "tokens");
    assert.ok(tokens.some((words) => words.includes(COMMON_NAME) && words.includes("can sign")), tokens.join("\n"));
    assert.match(tokens[0], /serial number .*offered/);
    const numbers = tokens.flatMap((words) => /serial number (\w+)/.exec(words)?.slice(1) ?? []);
    await settings(() => document.getElementById("examine").scrollIntoView());
    await rig.screenshot("doctor");

    await press(window, "copy-report");
    await says(/clipboard/);
    await rig.user.press(window, "ctrl+w");
    const page = await rig.page(t);
    await page.evaluate(() => document.body.append(document.createElement("textarea")));
    await page.bringToFront();
    await page.focus("textarea");
    await rig.user.press(await rig.user.browserWindow("Test page"), "ctrl+v");
    const report = await waitFor("the report", () => page.evaluate(() => document.querySelector("textarea").value));
    assert.match(report, /^Quillmark [\d.]+\n.*\na signature can be made: can\n(ok|warning): /);
    assert.match(report, /\n {2}certificate: offered, can sign/);
    assert.ok(![COMMON_NAME, rig.home, ...numbers].some((each) => report.includes(each)), report);
  });

  browserTest("what keeps the computer from signing is shown with its remedy, and a failure in the popup leads there", async (t) => {
    const program = join(rig.program.folder, "QMChromeExtHost");
    await rename(program, `${program}-away`);
    t.after(() => rename(`${program}-away`, program));
    const { page } = await rig.freshPage(t, { allowed: true });
    assert.equal(codeOf(await ask(page, "signAuthToken", ["token"])), "HOST_EXITED");
    const popup = await rig.extension.openPopup();
    await waitFor("the failure", () => popup.evaluate(() => document.querySelector("#signatures button") !== null));
    await popup.evaluate(() => document.querySelector("#signatures button").click());
    const words = await waitFor("what is wrong", async () => {
      const texts = await popup.evaluate(textsIn, "findings");
      return texts?.find((each) => each.includes("the signing program ends without an answer"));
    });
    assert.match(words, /What helps: /);
    assert.ok(await popup.evaluate(() => document.getElementById("why").textContent));
    await popup.close();
  });

  browserTest("no page reaches the doctor", async (t) => {
    const trace = await traceDoctor(t);
    const { page } = await rig.freshPage(t, { allowed: true });
    await openRawChannel(page);
    await gesture(page);
    const names = ["examine", "doctor", "quillmark.doctor", "recentSignatures", "state"];
    await page.evaluate((operations) => {
      for (const [i, name] of operations.entries()) {
        window.raw.port.postMessage({ type: "request", id: i, operation: name, values: {}, timeout: 5_000 });
        window.raw.port.postMessage({ type: name, id: i + 100, name: "quillmark.doctor", nonce: "1" });
      }
    }, names);
    const answers = await waitFor("the answers", async () => {
      const types = await page.evaluate(() => window.raw.answers.map(({ type }) => type).filter((type) => type !== "progress"));
      return types.length >= names.length && types;
    });
    assert.deepEqual(answers, names.map(() => "error"));
    assert.equal(await page.evaluate(() => typeof globalThis.chrome?.runtime?.sendNativeMessage), "undefined");
    await sleep(1_000); // what it had started would be there by then
    assert.ok(!existsSync(trace));

    await rig.extension.evaluate(() => document.getElementById("examine").click());
    await waitFor("the doctor's start", () => existsSync(trace));
  });
}
