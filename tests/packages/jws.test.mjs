// JWS: the signing input is the text that signAuthToken signs.

import assert from "node:assert/strict";
import { sign } from "node:crypto";
import { test } from "node:test";

import { verifyJws } from "quillmark-verify";

import { certificate } from "./lib/issuing.mjs";
import { digestOf, people } from "./lib/signing.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const trust = { roots: root.der, intermediates: issuing.der, revocation: "none" };
const base64 = (one) => one.der.toString("base64");
const thumbprint = (one) => digestOf(one.der).toString("base64url");

/** A compact JWS by Asha with this header. */
function jwsOf({ header = {}, payload = '{"sub":"asha"}', hash = "sha256", key = asha.privateKey } = {}) {
  const full = { alg: "RS256", x5c: [base64(asha)], ...header };
  const input = [JSON.stringify(full), payload].map((text) => Buffer.from(text).toString("base64url")).join(".");
  return `${input}.${sign(hash, Buffer.from(input), key).toString("base64url")}`;
}

const verified = (jws, more = {}) => verifyJws({ ...trust, jws, ...more });
const verdict = (jws, more) => verdictOf(verified(jws, more));

for (const [alg, hash] of [
  ["RS256", "sha256"],
  ["RS384", "sha384"],
  ["RS512", "sha512"],
]) {
  test(`${alg} is accepted, and says the payload and its signer`, async () => {
    const { payload, header, signer } = await verified(jwsOf({ header: { alg, "x5t#S256": thumbprint(asha) }, hash }));
    assert.deepEqual([Buffer.from(payload).toString(), header.alg, signer.name], ['{"sub":"asha"}', alg, "Asha Rao"]);
  });
}

test("The chain may be in the header", async () => {
  const alone = { roots: root.der, revocation: "none", intermediates: [] };
  assert.equal(await verdict(jwsOf({ header: { x5c: [asha, issuing, root].map(base64) } }), alone), "accepted");
  assert.equal(await verdict(jwsOf(), alone), "CERTIFICATE_UNTRUSTED");
});

test("Other algorithms than these three are refused", async () => {
  for (const alg of ["none", "HS256", "RS1", "PS256", "ES256", "rs256", "", null, 5])
    assert.equal(await verdict(jwsOf({ header: { alg } })), "WEAK_ALGORITHM");
  assert.equal(await verdict(jwsOf().replace(/\.[^.]*$/, ".")), "SIGNATURE_INVALID");
});

test("Another key, hash, payload or certificate does not hold", async () => {
  const mallory = certificate("Mallory", { issuer: issuing });
  assert.equal(await verdict(jwsOf({ key: mallory.privateKey })), "SIGNATURE_INVALID");
  assert.equal(await verdict(jwsOf({ hash: "sha512" })), "SIGNATURE_INVALID");
  assert.equal(await verdict(jwsOf({ header: { x5c: [base64(mallory)] } })), "SIGNATURE_INVALID");
  assert.equal(await verdict(jwsOf({ header: { "x5t#S256": thumbprint(mallory) } })), "SIGNATURE_INVALID");
  const [header, , signature] = jwsOf().split(".");
  assert.equal(
    await verdict([header, Buffer.from('{"sub":"ravi"}').toString("base64url"), signature].join(".")),
    "SIGNATURE_INVALID",
  );
});

test("Keys in the header do not count", async () => {
  const mallory = certificate("Mallory", { issuer: issuing });
  const jwk = mallory.publicKey.export({ format: "jwk" });
  assert.equal(await verdict(jwsOf({ header: { jwk }, key: mallory.privateKey })), "SIGNATURE_INVALID");
});

test("A header without certificates, or with something else in their place, is refused", async () => {
  const cases = [
    undefined,
    [],
    "text",
    [5],
    [""],
    ["?"],
    [asha.pem],
    Array.from({ length: 21 }, () => base64(asha)),
    { length: 1, 0: base64(asha) },
  ];
  for (const x5c of cases) assert.equal(await verdict(jwsOf({ header: { x5c } })), "MALFORMED");
});

test("Critical members of the header are refused", async () => {
  assert.equal(await verdict(jwsOf({ header: { crit: ["b64"], b64: false } })), "MALFORMED");
  assert.equal(await verdict(jwsOf({ header: { crit: [] } })), "MALFORMED");
});

test("What is no compact JWS is refused", async () => {
  const whole = jwsOf();
  for (const jws of [
    "",
    "a",
    "a.b.c",
    `${whole}.`,
    `${whole}.x`,
    whole.split(".").slice(0, 2).join("."),
    whole.replace(".", ""),
    "x".repeat(2_000_000),
    ` ${whole}`,
  ]) {
    assert.equal(await verdict(jws), "MALFORMED", jws.slice(0, 20));
  }
  for (const jws of [undefined, {}, Buffer.from(whole)]) assert.equal(await verdict(jws), "INVALID_ARGUMENT");
});
