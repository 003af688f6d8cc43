// The extension is stopped or loaded anew in the middle of what it does.

import assert from "node:assert/strict";

import { ask, codeOf, sleep, waitFor } from "../../lib/browser-kit.mjs";
import { assertRefused, openQuestion } from "../lib/attacker.mjs";

// Firefox ends the extension's script in the page without a word to it, so that the page hears no more.
const LOST = ["EXTENSION_MISSING", "no answer"];

const codeOfLost = (request) => Promise.race([request.then(codeOf), sleep(3_000, "no answer")]);

export default function ({ rig, attack }) {
  attack("an extension that is loaded anew while it asks takes its question away, and grants nothing", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consentWindow(question.origin);
    await rig.reloadExtension();
    // Chromium leaves an empty window.
    await waitFor("the question to go", async () => (await rig.extension.consentPages()) === 0);
    assert.ok(LOST.includes(await codeOfLost(question.request)));
    assert.deepEqual(await rig.program.running(), []);
  });

  attack("an extension that is loaded anew takes the host and its window with it", async (t) => {
    const { page } = await rig.freshPage(t, { allowed: true });
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    await rig.reloadExtension();
    assert.ok(LOST.includes(await codeOfLost(request)));
    await rig.program.gone({ timeout: 8_000 });
    assert.equal(await rig.user.seesAWindow(), false);
  });

  attack("a denial outlives a stop of the extension's background", async (t) => {
    const question = await openQuestion(rig, t);
    await rig.user.consent(question.origin, "deny");
    assert.equal(codeOf(await question.request), "ORIGIN_DENIED");
    await rig.extension.stopBackground();
    await sleep(500);
    await assertRefused(rig, question.origin, ask(question.page, "selectCertificate"), "ORIGIN_DENIED", "NOT_NOW");
  });
}
