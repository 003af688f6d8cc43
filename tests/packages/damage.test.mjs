// Whatever is cut or flipped: nothing is accepted but what was signed, and nothing is thrown but a VerificationError.

import assert from "node:assert/strict";
import { sign } from "node:crypto";
import { test } from "node:test";

import { newChallenge, verifyAuthToken, verifyGstReturn, verifyJws, verifyPdf, verifyPdfHash } from "quillmark-verify";

import { digestOf, gstReturn, pdfSignature, people, signedPdf } from "./lib/signing.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const trust = { roots: root.der, intermediates: issuing.der, revocation: "none" };
const SITE = "https://portal.example.com";
const challenge = newChallenge({ site: SITE });
const digest = digestOf("a document");
const header = Buffer.from(JSON.stringify({ alg: "RS256", x5c: [asha.der.toString("base64")] })).toString("base64url");
const signingInput = `${header}.${Buffer.from("a payload").toString("base64url")}`;

/** Of each kind: bytes, how they are verified, and what of the answer has to stay as it is. */
const KINDS = {
  "a login's signature": {
    bytes: sign("sha256", Buffer.from(challenge), asha.privateKey),
    verify: (signature) => verifyAuthToken({ ...trust, signature, challenge, site: SITE, certificate: asha.der }),
  },
  "a login's certificate": {
    bytes: asha.der,
    verify: (certificate) =>
      verifyAuthToken({
        ...trust,
        signature: sign("sha256", Buffer.from(challenge), asha.privateKey),
        challenge,
        site: SITE,
        certificate,
      }),
  },
  "a return": { bytes: gstReturn(asha, "a text"), verify: (cms) => verifyGstReturn({ ...trust, cms }), told: ({ text }) => text },
  "a digest's signature": {
    bytes: pdfSignature(asha, digest),
    verify: (pkcs7) => verifyPdfHash({ ...trust, pkcs7, hash: digest }),
  },
  "a PDF file": {
    bytes: signedPdf(asha, { hole: 3000 }),
    verify: async (pdf) => (await verifyPdf({ ...trust, pdf })).signatures[0],
  },
  "a JWS": {
    bytes: Buffer.from(`${signingInput}.${sign("sha256", Buffer.from(signingInput), asha.privateKey).toString("base64url")}`),
    verify: (bytes) => verifyJws({ ...trust, jws: bytes.toString("latin1") }),
    told: ({ payload }) => Buffer.from(payload).toString(),
  },
};

/** So many of each kind: what a minute has time for. */
const STEPS = 160;

for (const [kind, { bytes, verify, told = () => "" }] of Object.entries(KINDS)) {
  const whole = await verify(bytes);

  test(`Of ${kind} no part is accepted`, async () => {
    for (let length = 0; length < bytes.length; length += 16) {
      assert.notEqual(await verdictOf(verify(bytes.subarray(0, length))), "accepted", `the first ${length} bytes`);
    }
  });

  test(`Of ${kind} with a flipped bit nothing is accepted but the same`, async () => {
    const step = Math.max(1, Math.floor((bytes.length * 8) / STEPS)) | 1; // odd: all bits of a byte have their turn
    for (let bit = 0; bit < bytes.length * 8; bit += step) {
      const flipped = Buffer.from(bytes);
      flipped[bit >> 3] ^= 1 << (bit & 7);
      let answer;
      const verdict = await verdictOf(
        verify(flipped).then((given) => {
          answer = given;
        }),
      );
      if (verdict !== "accepted") continue;
      assert.deepEqual([answer.signer.thumbprint256, told(answer)], [whole.signer.thumbprint256, told(whole)], `bit ${bit}`);
    }
  });

  test(`Of ${kind} with bytes of another thing in it nothing is accepted but the same`, async () => {
    for (let i = 0; i < STEPS / 4; i++) {
      const mixed = Buffer.from(bytes);
      const at = Math.floor((bytes.length / (STEPS / 4)) * i);
      digestOf(`${kind} ${i}`).copy(mixed, at);
      const verdict = await verdictOf(verify(mixed));
      // The version, the list of algorithms and the like are under no signature, but longer than these bytes are none of them.
      assert.notEqual(verdict, "accepted", `from byte ${at}`);
    }
  });
}
