// Values of another type than the table of operations has, from a page that speaks without the library.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, DIGEST, waitFor } from "../../lib/browser-kit.mjs";
import { openRawChannel } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  /** A page of an allowed site, while another was given the PIN. */
  async function siteBesideAnother(t) {
    const { page } = await rig.freshPage(t, { allowed: true });
    const signed = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]));
    assert.ok(signed.value, "the PIN has been typed for a site");
    return (await rig.freshPage(t, { allowed: true })).page;
  }

  attack("an operation, a value or a time of another type is refused, also with a PIN that another site was given", async (t) => {
    const evil = await siteBesideAnother(t);
    await openRawChannel(evil);
    const pdf = { hash: DIGEST, certThumbPrint: rig.certificate.thumbprint, hashAlgorithm: "SHA-256" };
    const requests = [
      { operation: ["signPdfHash"], values: pdf },
      { operation: [["signPdfHash"]], values: pdf },
      { operation: [["signAuthToken"]], values: { authToken: "token" } },
      { operation: { length: 1, 0: "signPdfHash" }, values: pdf },
      { operation: null, values: pdf },
      { operation: "toString", values: pdf },
      { operation: "__proto__", values: pdf },
      { operation: "signAuthToken", values: null },
      { operation: "signAuthToken", values: ["token"] },
      { operation: "signAuthToken", values: { authToken: ["token"] } },
      { operation: "signAuthToken", values: { authToken: { length: 5 } } },
      { operation: "signAuthToken", values: { authToken: "token", hashAlgorithm: ["SHA-256"] } },
      { operation: "signPdfHash", values: { ...pdf, hash: [DIGEST] } },
      { operation: "signPdfHash", values: { ...pdf, certThumbPrint: [rig.certificate.thumbprint] } },
      { operation: "signAuthToken", values: { authToken: "token" }, timeout: ["60000"] },
      { operation: "signAuthToken", values: { authToken: "token" }, timeout: "60000" },
    ];
    const code = async (request, id) => {
      await evil.evaluate((sent) => window.raw.port.postMessage(sent), { type: "request", id, timeout: 60_000, ...request });
      return waitFor("a refusal", async () => {
        const answer = await evil.evaluate((wanted) => window.raw.answers.find((each) => each.id === wanted && each.type !== "progress"), id);
        if (answer) return answer.type === "error" ? answer.error.code : "an answer";
        return (await rig.user.seesAWindow()) ? "a window" : undefined;
      });
    };
    const outcomes = [];
    for (const [i, request] of requests.entries()) {
      const outcome = await code(request, i + 1);
      outcomes.push(["INVALID_ARGUMENT", "UNKNOWN_ACTION", "UNSUPPORTED_HASH"].includes(outcome) ? "refused" : `${JSON.stringify(request)}: ${outcome}`);
      if (outcome === "a window") await evil.evaluate((id) => window.raw.port.postMessage({ type: "abort", id }), i + 1);
      if (outcome === "a window") await rig.program.gone();
    }
    assert.deepEqual(outcomes, requests.map(() => "refused"));
  });

  attack("an origin for which no certificate was chosen does not sign with the PIN of another", async (t) => {
    const [chosen, never] = [await rig.freshOrigin(t), await rig.freshOrigin(t)];
    await rig.allow(chosen);
    await rig.allow(never);
    const good = await rig.page(t, { origin: chosen });
    await rig.user.chooseAndLogIn(ask(good, "signAuthToken", ["token"]));
    const evil = await rig.page(t, { origin: never });
    const request = askWithoutGesture(evil, "signPdfHash", [DIGEST, rig.certificate.thumbprint]);
    await rig.user.certificateWindow();
    await rig.user.cancel(request);
    assert.equal((await request).code, "USER_CANCELLED");
  });
}
