// The queue in which requests wait for their turn.

import assert from "node:assert/strict";
import { test } from "node:test";

import { Queue } from "../../extension/src/queue.js";
import { settle } from "./fakes.mjs";

const enter = (queue, { signal = new AbortController().signal, waiting = [] } = {}) =>
  queue.enter({ signal, onWaiting: (ahead) => waiting.push(ahead) });

test("Turns come in the order of arrival", async () => {
  const queue = new Queue();
  const order = [];
  await Promise.all([1, 2, 3].map(async (name) => {
    const leave = await enter(queue);
    order.push(name);
    await settle(2);
    leave();
  }));
  assert.deepEqual(order, [1, 2, 3]);
  assert.equal(queue.length, 0);
});

test("Those who wait are told how many come first whenever it changes", async () => {
  const queue = new Queue();
  const waiting = [];
  const controller = new AbortController();
  const leave = await enter(queue);
  const second = enter(queue, { signal: controller.signal });
  const third = enter(queue, { waiting });
  assert.deepEqual(waiting, [2]);
  controller.abort(new Error("withdrawn"));
  await assert.rejects(second, { message: "withdrawn" });
  assert.deepEqual(waiting, [2, 1]);
  leave();
  (await third)();
  assert.deepEqual(waiting, [2, 1]);
});

test("Leaving twice ends no other turn", async () => {
  const queue = new Queue();
  const leave = await enter(queue);
  leave();
  const next = await enter(queue);
  leave();
  assert.equal(queue.length, 1);
  next();
});

test("An aborted signal does not enter, and an abort during the turn does not end it", async () => {
  const queue = new Queue();
  await assert.rejects(enter(queue, { signal: AbortSignal.abort(new Error("too late")) }), { message: "too late" });
  const controller = new AbortController();
  const leave = await enter(queue, { signal: controller.signal });
  controller.abort();
  assert.equal(queue.length, 1);
  leave();
  assert.equal(queue.length, 0);
});
