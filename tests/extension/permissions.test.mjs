// Who may ask: origins, the user's list, the administrator's.

import assert from "node:assert/strict";
import { test } from "node:test";

import { isTrustworthy } from "../../extension/src/origins.js";
import { Permissions } from "../../extension/src/permissions.js";
import { PolicySource } from "../../extension/src/policy.js";
import { storage } from "./fakes.mjs";

function permissions({ user = {}, managed = {} }) {
  const policy = new PolicySource({ managed: storage(managed), session: storage({ policySettled: true }) });
  return new Permissions({ user: storage(user), policy });
}

test("https is trustworthy, http only on this computer, all else never", () => {
  for (const origin of ["https://a.example", "https://a.example:8443", "http://localhost", "http://localhost:3000", "http://127.0.0.1:1"]) {
    assert.equal(isTrustworthy(origin), true, origin);
  }
  for (const origin of [
    "http://a.example", "http://localhost.a.example", "null", "", undefined, "file://", "ws://localhost",
    "https://a.example/", "https://user@a.example", "HTTPS://A.EXAMPLE", "chrome-extension://abc", "data:text/html,x",
  ]) {
    assert.equal(isTrustworthy(origin), false, String(origin));
  }
});

test("An unknown origin is asked about, an allowed one is not, until it is revoked", async () => {
  const subject = permissions({});
  assert.equal(await subject.decide("https://a.example"), "ask");
  await subject.allow("https://a.example");
  await subject.allow("https://a.example");
  assert.deepEqual(await subject.usersOrigins(), ["https://a.example"]);
  assert.equal(await subject.decide("https://a.example"), "allowed");
  await subject.revoke("https://a.example");
  assert.equal(await subject.decide("https://a.example"), "ask");
});

test("The administrator's word counts before the user's, and a denial before a permission", async () => {
  const subject = permissions({
    user: { allowedOrigins: ["https://bad.example", "https://mine.example"] },
    managed: { allowedOrigins: ["https://tax.example", "https://both.example"], deniedOrigins: ["https://bad.example", "https://both.example"] },
  });
  assert.equal(await subject.decide("https://tax.example"), "allowed");
  assert.equal(await subject.decide("https://mine.example"), "allowed");
  assert.equal(await subject.decide("https://bad.example"), "denied");
  assert.equal(await subject.decide("https://both.example"), "denied");
});

test("onlyAllowedOrigins denies what the administrator has not allowed, also what the user had", async () => {
  const subject = permissions({
    user: { allowedOrigins: ["https://mine.example"] },
    managed: { allowedOrigins: ["https://*.gov.example"], onlyAllowedOrigins: true },
  });
  assert.equal(await subject.decide("https://tax.gov.example"), "allowed");
  assert.equal(await subject.decide("https://mine.example"), "denied");
  assert.equal(await subject.decide("https://new.example"), "denied");
});

test("The administrator cannot allow a site that anybody on the way could change", async () => {
  assert.equal(await permissions({ managed: { allowedOrigins: ["http://a.example"] } }).decide("http://a.example"), "denied");
});

test("A user's list that holds something else is as good as empty", async () => {
  assert.equal(await permissions({ user: { allowedOrigins: "https://a.example" } }).decide("https://a.example"), "ask");
});
