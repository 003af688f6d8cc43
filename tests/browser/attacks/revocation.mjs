// A permission that is taken back, while much waits on it.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, codeOf, DIGEST, sleep } from "../../lib/browser-kit.mjs";

const TABS = 3;
const WAITING = 51;

export default function ({ rig, attack }) {
  attack(`taking "always" back ends the ${WAITING} signatures that wait, and the host with the PIN`, async (t) => {
    const origin = await rig.freshOrigin(t);
    await rig.allow(origin);
    const pages = [];
    for (let i = 0; i < TABS; i++) pages.push(await rig.page(t, { origin }));
    const first = await rig.user.chooseAndLogIn(ask(pages[0], "signAuthToken", ["token"]));
    assert.ok(first.value);

    // A window holds the host; the PDF documents behind it would need none.
    const holding = askWithoutGesture(pages[0], "selectCertificate");
    await rig.user.certificateWindow();
    const requests = pages.map((page) => page.evaluate(
      (count, digest, thumbprint) => Promise.all(Array.from({ length: count }, () => window.ask("signPdfHash", [digest, thumbprint]))),
      WAITING / TABS, DIGEST, rig.certificate.thumbprint,
    ));
    await sleep(1_000);
    await revoke(rig, origin);

    let outcomes;
    const all = Promise.all([holding, ...requests]);
    all.then((given) => (outcomes = given.flat().map(codeOf)), () => {});
    await sleep(3_000);
    // A user who has revoked and then still answers the window must not have signed by it.
    if (!outcomes) await rig.user.choose(all);
    await all;
    const counts = {};
    for (const code of outcomes.map((each) => each.replace(/^no error.*/, "signed"))) counts[code] = (counts[code] ?? 0) + 1;
    assert.deepEqual(counts, { ORIGIN_DENIED: WAITING + 1 });
    await rig.program.gone({ timeout: 8_000 });
  });
}

/** Presses the origin's button on the settings page. */
async function revoke(rig, origin) {
  await rig.extension.evaluate(async (revoked) => {
    const button = () => [...document.querySelectorAll("button")].find((each) => each.getAttribute("aria-label") === `Remove ${revoked}`);
    while (!button()) await new Promise((resolve) => setTimeout(resolve, 50));
    button().click();
  }, origin);
}
