// A frame that changes what it shows: another origin, or none.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, gesture, statusOf, waitFor } from "../../lib/browser-kit.mjs";
import { assertRefused } from "../lib/attacker.mjs";

export default function ({ rig, attack }) {
  const show = (page, address) => page.evaluate((src) => (document.querySelector("iframe").src = src), address);

  attack("a frame that takes another origin takes its question away, and not the click with it", async (t) => {
    const { page, origin: first, frame } = await rig.framedPage(t);
    const second = await rig.freshOrigin(t, "127.0.0.1");
    const request = ask(frame, "selectCertificate");
    request.catch(() => {});
    const id = await rig.user.question(first);
    await show(page, `${second}/`);
    await rig.user.gone(id);
    await assertRefused(rig, second, askWithoutGesture(await rig.frameOf(page, second), "selectCertificate"), "NOT_NOW");
    assert.deepEqual(await rig.program.running(), []);
  });

  attack("a frame of an allowed site that takes another origin is not allowed any more", async (t) => {
    const { page, origin: first, frame } = await rig.framedPage(t);
    const second = await rig.freshOrigin(t, "127.0.0.1");
    await rig.allow(first);
    assert.equal((await statusOf(frame)).permission, "allowed");
    await gesture(frame);
    await show(page, `${second}/`);
    const other = await rig.frameOf(page, second);
    assert.equal((await statusOf(other)).permission, "ask");
    await assertRefused(rig, second, askWithoutGesture(other, "selectCertificate"), "NOT_NOW");
  });

  attack("a frame in a sandbox, which has no origin, gets nothing in an allowed site's name", async (t) => {
    const origin = await rig.freshOrigin(t);
    await rig.allow(origin);
    const path = `/sandbox-${new URL(origin).port}`;
    // The library is a module, which a document without an origin may not load; it speaks by itself.
    rig.addPage(`${path}-inner`, `<!doctype html><script>
      const { port1, port2 } = new MessageChannel();
      port1.onmessage = ({ data }) => {
        if (data.type === "ready") port1.postMessage({ type: "request", id: 1, operation: "selectCertificate", values: {}, timeout: 60000 });
        else if (data.type !== "progress") parent.postMessage(data, "*");
      };
      addEventListener("load", () => postMessage({ quillmark: "connect" }, "*", [port2]));
      addEventListener("load", () => setTimeout(() => parent.postMessage({ type: "silent" }, "*"), 3000));
    </script>`);
    rig.addPage(path, `<script>addEventListener("message", ({ data }) => (window.heard ??= data.type && data));</script>
      <iframe sandbox="allow-scripts" src="${path}-inner"></iframe>`);
    const page = await rig.page(t, { origin, path });
    const heard = await waitFor("the frame", () => page.evaluate(() => window.heard));
    assert.ok(heard.type === "silent" || heard.error?.code === "ORIGIN_DENIED", JSON.stringify(heard));
    assert.deepEqual(await rig.program.running(), []);
    assert.equal((await statusOf(page)).permission, "allowed");
  });
}
