// Which clicks and keys a window takes, in a made-up window with a clock that stands still.

import assert from "node:assert/strict";
import { after, test } from "node:test";

const listeners = {};
let now = 0;
let look;
const realPerformance = Object.getOwnPropertyDescriptor(globalThis, "performance");
const realSetInterval = globalThis.setInterval;
Object.defineProperty(globalThis, "performance", { value: { now: () => now }, configurable: true });
const listen = (type, listener) => (listeners[type] ??= []).push(listener);
Object.assign(globalThis, {
  window: { addEventListener: listen },
  document: { addEventListener: listen, documentElement: { addEventListener: listen }, hasFocus: () => true, visibilityState: "visible" },
  screenX: 0, screenY: 0, outerWidth: 800, outerHeight: 600,
  setInterval: (callback) => (look = callback),
});
after(() => {
  Object.defineProperty(globalThis, "performance", realPerformance);
  globalThis.setInterval = realSetInterval;
});

const { Arming } = await import("../../extension/consent/arming.js");

function windowAt(time) {
  now = time;
  for (const type of Object.keys(listeners)) delete listeners[type];
  return new Arming(() => {});
}

function pass(time) {
  for (const end = now + time; now < end; now += 100) look();
  look();
}

const fire = (type, event = {}) => listeners[type].forEach((listener) => listener(event));
const CLICK = { isTrusted: true };

test("A press that begins and ends in an armed window counts, and one by a script does not", () => {
  const arming = windowAt(0);
  pass(1_500);
  fire("pointerdown");
  assert.equal(arming.takes(CLICK), true);
  assert.equal(arming.takes({ isTrusted: false }), false);
});

test("A press that began before the window was armed does not count, however late it ends", () => {
  const arming = windowAt(0);
  pass(500);
  fire("pointerdown");
  pass(1_500);
  assert.equal(arming.isArmed, true);
  assert.equal(arming.takes(CLICK), false);
  fire("pointerdown");
  assert.equal(arming.takes(CLICK), true);
});

test("A press that began before what is in sight changed does not count, however late it ends", () => {
  const arming = windowAt(0);
  pass(1_500);
  for (const held of [0, 500]) {
    fire("pointerdown");
    pass(held);
    arming.restart();
    pass(1_500);
    assert.equal(arming.isArmed, true);
    assert.equal(arming.takes(CLICK), false);
  }
});

test("A key that is held down does not count", () => {
  const arming = windowAt(0);
  pass(1_500);
  fire("keydown", { repeat: true });
  assert.equal(arming.takes(CLICK), false);
});
