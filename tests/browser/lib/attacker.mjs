// What pages do that want an answer which the user has not given, and how the tests tell whether they got it.

import assert from "node:assert/strict";

import { ask, codeOf, sleep, statusOf, waitFor } from "../../lib/browser-kit.mjs";

/** Has the user asked from a page of an origin of its own: { origin, page, request, id } with the window's id. */
export async function openQuestion(rig, t, { operation = "selectCertificate", args = [] } = {}) {
  const { origin, page } = await rig.freshPage(t);
  const request = ask(page, operation, args);
  request.catch(() => {}); // the page may be closed first
  return { origin, page, request, id: await rig.user.question(origin) };
}

/** The place of an answer that gives something, on the screen, wherever the window's page has put it. */
export const placeOfOnce = (rig, { id }) => waitFor("the place of the answer", () => rig.user.placeOf("#once", id));

/**
 * Has the page open a window of its own with the cover's HTML (see COVER), at a place of the screen, in front of all others:
 * some window managers let it come there, and this one is made to.
 */
export async function openCover(rig, page, { left, top, width, height }) {
  await page.evaluate((features) => {
    window.covers = [];
    window.cover = open("/cover", "cover", features);
  }, `left=${left},top=${top},width=${width},height=${height}`);
  await page.waitForFunction(() => window.cover?.document.readyState === "complete" && window.cover.document.title === "Cover");
  await rig.user.bringToFront(await rig.user.browserWindow("Cover"));
  await sleep(1_000); // until it is drawn where the window manager has put it
}

/** Tells its opener what it sees, and does on a mousedown or a keydown what the opener has put into `strike`. */
export const COVER = `<!doctype html><meta charset="utf-8"><title>Cover</title><style>html { height: 100%; background: gold; }</style>
<script>
  for (const type of ["mousedown", "keydown"]) {
    addEventListener(type, (event) => {
      opener.covers.push(event.type);
      opener.strike?.(window);
    });
  }
</script>`;

/** Asserts that the cover saw the user's first click or key: without that there was no attack. */
export async function assertStruck(page) {
  const seen = await page.evaluate(() => window.covers.length);
  assert.ok(seen > 0, "the cover was there when the user pressed");
}

/** Asserts that the question has not been answered: neither granted nor denied. The window may be waiting still. */
export async function assertUnanswered(rig, { origin, page, request }) {
  let answer;
  request.then((given) => (answer = given), () => {});
  await sleep(1_000); // what was granted is at work by then
  const progress = await page.evaluate(() => window.progress);
  const { permission } = await statusOf(page);
  const started = (await rig.program.running()).length > 0;
  const open = (await rig.user.questions(origin)).length > 0;
  const unanswered = { progress: ["consent"], permission: "ask", started: false, open: true, answer: undefined };
  assert.deepEqual({ progress, permission, started, open, answer }, unanswered);
}

/** What comes first of a request: its code, or a question to the user. */
export async function codeOrQuestion(rig, origin, request) {
  let settled;
  request.then((outcome) => (settled = codeOf(outcome)), (error) => (settled = String(error)));
  return waitFor("an answer or a question", async () => {
    if (settled) return settled;
    return (await rig.user.questions(origin)).length > 0 ? "the user was asked" : undefined;
  });
}

/** Asserts that a request is refused with one of these codes, without a question to the user. */
export async function assertRefused(rig, origin, request, ...codes) {
  const outcome = await codeOrQuestion(rig, origin, request);
  assert.ok(codes.includes(outcome), `${outcome}, not ${codes.join(" or ")}`);
}

/** Speaks to the extension's script in a page without the library. The answers are gathered in `raw.answers`. */
export const openRawChannel = (page) => page.evaluate(() => {
  const { port1, port2 } = new MessageChannel();
  window.raw = { port: port1, answers: [] };
  const ready = new Promise((resolve) => {
    port1.onmessage = ({ data }) => (data.type === "ready" ? resolve() : window.raw.answers.push(data));
  });
  postMessage({ quillmark: "connect" }, "/", [port2]);
  return ready;
});
