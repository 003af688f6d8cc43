// Logins: the challenge, and what counts as its signature.

import assert from "node:assert/strict";
import { sign } from "node:crypto";
import { test } from "node:test";

import { newChallenge, verifyAuthToken } from "quillmark-verify";

import { certificate, DAY } from "./lib/issuing.mjs";
import { people } from "./lib/signing.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const SITE = "https://portal.example.com";
const MINUTE = 60_000;

const signatureOf = (text, { hash = "sha256", signer = asha } = {}) =>
  sign(hash, Buffer.from(text), signer.privateKey).toString("base64");
const login = (challenge, more = {}) =>
  verifyAuthToken({
    signature: signatureOf(challenge),
    challenge,
    site: SITE,
    certificate: asha.der,
    roots: root.der,
    intermediates: issuing.der,
    revocation: "none",
    ...more,
  });
const ofLogin = (challenge, more) => verdictOf(login(challenge, more));

/** A challenge of another time. */
const challengeOf = (milliseconds, { site = SITE } = {}) =>
  newChallenge({ site }).replace(/\nat .*\n/, `\nat ${new Date(Date.now() + milliseconds).toISOString()}\n`);

test("A challenge names the site and the time, and is never the same twice", () => {
  const challenges = Array.from({ length: 1000 }, () => newChallenge({ site: SITE }));
  assert.equal(new Set(challenges).size, 1000);
  for (const challenge of challenges)
    assert.match(challenge, /^Log in to https:\/\/portal\.example\.com\nat \d{4}-[-\d]+T[:.\d]+Z\nnumber [\w-]{43}$/);
});

test("A login says who it is, and when the challenge was made", async () => {
  const challenge = newChallenge({ site: SITE });
  const { signer, chain, issuedAt, hashAlgorithm } = await login(challenge);
  assert.deepEqual([signer.name, chain.length, hashAlgorithm], ["Asha Rao", 3, "SHA-256"]);
  assert.ok(challenge.includes(issuedAt.toISOString()));
});

test("The certificate may be what selectCertificate gives: Base64", async () => {
  assert.equal(await ofLogin(newChallenge({ site: SITE }), { certificate: asha.der.toString("base64") }), "accepted");
});

for (const hashAlgorithm of ["SHA-256", "SHA-384", "SHA-512", "SHA256", "SHA384", "SHA512"]) {
  test(`${hashAlgorithm} is accepted, when it is what was signed with`, async () => {
    const challenge = newChallenge({ site: SITE });
    const hash = hashAlgorithm.toLowerCase().replace("-", "");
    assert.equal(await ofLogin(challenge, { hashAlgorithm, signature: signatureOf(challenge, { hash }) }), "accepted");
    assert.equal(
      await ofLogin(challenge, { hashAlgorithm, signature: signatureOf(challenge, { hash: "sha1" }) }),
      "SIGNATURE_INVALID",
    );
  });
}

test("SHA-1 and unknown hash algorithms are refused, also where the signature is good", async () => {
  const challenge = newChallenge({ site: SITE });
  for (const hashAlgorithm of ["SHA-1", "SHA1", "MD5", "sha256", "", null, {}, "__proto__"]) {
    assert.equal(
      await ofLogin(challenge, { hashAlgorithm, signature: signatureOf(challenge, { hash: "sha1" }) }),
      "WEAK_ALGORITHM",
    );
  }
});

test("A login at another site is none here", async () => {
  for (const site of [
    "https://evil.example.com",
    "https://portal.example.co",
    "http://portal.example.com",
    `${SITE}.evil.example`,
  ]) {
    const challenge = newChallenge({ site });
    assert.equal(await ofLogin(challenge), "CHALLENGE_INVALID");
  }
});

test("An old challenge, and one of a time to come, are refused", async () => {
  assert.equal(await ofLogin(challengeOf(-6 * MINUTE)), "CHALLENGE_EXPIRED");
  assert.equal(await ofLogin(challengeOf(-6 * MINUTE), { maxAge: 7 * MINUTE }), "accepted");
  assert.equal(await ofLogin(challengeOf(-4 * MINUTE)), "accepted");
  assert.equal(await ofLogin(challengeOf(4 * MINUTE)), "accepted");
  assert.equal(await ofLogin(challengeOf(6 * MINUTE)), "CHALLENGE_INVALID");
  assert.equal(await ofLogin(challengeOf(-DAY)), "CHALLENGE_EXPIRED");
});

test("What only resembles a challenge is none", async () => {
  const good = newChallenge({ site: SITE });
  const bad = [
    good.replace("Log in", "Log out"),
    `${good}\n`,
    ` ${good}`,
    good.replaceAll("\n", "\r\n"),
    good.slice(0, -1),
    good.replace("Z\n", "\n"),
    `${good}\n${good}`,
    good.replace(/at \d{4}-\d\d/, "at 2026-19"),
    "",
    "a token",
  ];
  for (const challenge of bad) assert.equal(await ofLogin(challenge), "CHALLENGE_INVALID", challenge);
});

test("A signature of another text, by another key or for another certificate does not hold", async () => {
  const [challenge, other] = [newChallenge({ site: SITE }), newChallenge({ site: SITE })];
  const mallory = certificate("Mallory", { issuer: issuing });
  assert.equal(await ofLogin(challenge, { signature: signatureOf(other) }), "SIGNATURE_INVALID");
  assert.equal(await ofLogin(challenge, { signature: signatureOf(challenge, { signer: mallory }) }), "SIGNATURE_INVALID");
  assert.equal(await ofLogin(challenge, { certificate: mallory.der }), "SIGNATURE_INVALID");
});

test("A signature is as long as the key, and nothing else", async () => {
  const challenge = newChallenge({ site: SITE });
  const whole = Buffer.from(signatureOf(challenge), "base64");
  for (const signature of [
    whole.subarray(1),
    Buffer.concat([Buffer.from([0]), whole]),
    Buffer.concat([whole, Buffer.from([0])]),
    Buffer.alloc(256),
    Buffer.alloc(256, 0xff),
    Buffer.alloc(0),
  ])
    assert.equal(await ofLogin(challenge, { signature }), "SIGNATURE_INVALID");
  assert.equal(await ofLogin(challenge, { signature: Buffer.alloc(2000) }), "MALFORMED");
  assert.equal(await ofLogin(challenge, { signature: "?" }), "MALFORMED");
});

test("The certificate has to lead to a root, and to be one", async () => {
  const challenge = newChallenge({ site: SITE });
  const stranger = certificate("Asha Rao", { keyLabel: "stranger" });
  assert.equal(
    await ofLogin(challenge, { certificate: stranger.der, signature: signatureOf(challenge, { signer: stranger }) }),
    "CERTIFICATE_UNTRUSTED",
  );
  assert.equal(await ofLogin(challenge, { certificate: asha.der.subarray(0, 100) }), "MALFORMED");
  assert.equal(await ofLogin(challenge, { certificate: asha.pem }), "MALFORMED");
});

test("What the caller does wrongly has a code of its own", async () => {
  for (const site of [undefined, "", "two words", "a\nb", 5]) {
    assert.throws(() => newChallenge({ site }), { code: "INVALID_ARGUMENT" });
    assert.equal(await ofLogin(newChallenge({ site: SITE }), { site }), "INVALID_ARGUMENT");
  }
  for (const more of [
    { maxAge: 0 },
    { maxAge: NaN },
    { maxAge: "soon" },
    { challenge: undefined },
    { challenge: ["a"] },
    { certificate: undefined },
  ]) {
    assert.equal(await ofLogin(newChallenge({ site: SITE }), more), "INVALID_ARGUMENT");
  }
});
