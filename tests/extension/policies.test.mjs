// Administrators' settings, by the cases that the doctor is held against too.

import assert from "node:assert/strict";
import { test } from "node:test";

import { Permissions } from "../../extension/src/permissions.js";
import { Policy, PolicySource } from "../../extension/src/policy.js";
import { vectors } from "../policies/vectors.mjs";
import { stopClock, settle, storage } from "./fakes.mjs";

for (const { what, policy, problems, minutes, decisions } of vectors) {
  test(what, async () => {
    const source = new PolicySource({ managed: storage(policy), session: storage({ policySettled: true }) });
    const subject = new Permissions({ user: storage(), policy: source });
    const understood = new Policy(policy);
    const found = understood.problems.map(({ key, entry }) => ({ key, entry }));
    const order = (list) => list.map((each) => JSON.stringify(each)).sort();
    assert.deepEqual(order(found), order(problems));
    assert.deepEqual(understood.pinLife, minutes);
    for (const [origin, decision] of Object.entries(decisions)) assert.equal(await subject.decide(origin), decision, origin);
  });
}

test("A browser without managed storage has no policy, and one that cannot read it denies everybody", async () => {
  const rejecting = (words) => new PolicySource({ managed: { get: () => Promise.reject(new Error(words)) }, session: storage() });
  assert.equal((await rejecting("Managed storage manifest not found").current()).decide("https://a.example"), "ask");
  const unreadable = await rejecting("Corrupted").current();
  assert.equal(unreadable.decide("https://a.example"), "denied");
  assert.match(unreadable.problems[0].why, /Corrupted/);
});

test("Nothing is decided before the browser had the time to read the policies", async (t) => {
  const clock = stopClock(t);
  const managed = storage();
  const session = storage();
  const source = new PolicySource({ managed, session });
  let policy;
  source.current().then((current) => (policy = current));
  await settle();
  assert.equal(policy, undefined);
  managed.values.deniedOrigins = ["https://a.example"];
  clock.tick(8_000);
  await settle();
  assert.equal(policy.decide("https://a.example"), "denied");
  assert.equal(session.values.policySettled, true);
});

test("Policies that are told of as changed are waited for no longer", async (t) => {
  stopClock(t);
  const managed = storage();
  const source = new PolicySource({ managed, session: storage() });
  const current = source.current();
  await settle();
  managed.values.onlyAllowedOrigins = true;
  managed.onChanged.emit({});
  assert.equal((await current).decide("https://a.example"), "denied");
});
