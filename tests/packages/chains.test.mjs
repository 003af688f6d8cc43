// Which chains lead from a signer to a root, and which do not. What openssl says of the same certificates stands beside it.

import assert from "node:assert/strict";
import { after, test } from "node:test";

import { verifyGstReturn } from "quillmark-verify";

import { runUnchecked } from "../lib/kit.mjs";
import {
  authority,
  certificate,
  constraints,
  DAY,
  extension,
  inDays,
  integer,
  nameOf,
  octets,
  personal,
  purposes,
  sequence,
  usage,
} from "./lib/issuing.mjs";
import { scratch } from "./lib/scratch.mjs";
import { der, gstReturn, people } from "./lib/signing.mjs";
import { secondsOf, verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const { file } = await scratch({ after });

/** The verdict on a return by this signer. */
const ofSigner = (signer, { roots = [root.der], intermediates = [issuing.der], ...more } = {}) =>
  verdictOf(verifyGstReturn({ roots, intermediates, revocation: "none", cms: gstReturn(signer, "a text"), ...more }));

/** Whether openssl takes the chain. */
async function opensslTakes(signer, { roots = [root], between = [issuing] } = {}) {
  const pems = (name, certificates) => file(name, certificates.map(({ pem }) => pem).join(""));
  const { code } = await runUnchecked("openssl", [
    "verify",
    "-auth_level",
    "2",
    "-CAfile",
    await pems("roots", roots),
    ...(between.length > 0 ? ["-untrusted", await pems("between", between)] : []),
    await pems("signer", [signer]),
  ]);
  return code === 0;
}

/** A chain in which one certificate is another than usual: [what, {root, issuing, signer}, code, whether openssl takes it]. */
const by = (more) => ({ signer: certificate("Asha Rao", { issuer: issuing, ...more }) });
const below = (changed, options = {}) => ({ issuing: changed, signer: certificate("Asha Rao", { issuer: changed, ...options }) });
const issuingWith = (options) => authority("Issuing", { issuer: root, ...options });
const criticalUnknown = extension("1.2.3.4", integer([1]), { critical: true });
const noConstraints = extension("2.5.29.30", sequence(der(0xa0, sequence(der(0x82, Buffer.from("example.com"))))));

const chains = [
  ["as it has to be", {}, "accepted"],
  ["of another root of the same name", { root: authority("Root", { keyLabel: "another root" }) }, "CERTIFICATE_UNTRUSTED"],
  ["that signs itself, with the root's name", { signer: certificate("Root", { keyLabel: "own root" }) }, "CERTIFICATE_UNTRUSTED"],
  ["that names the issuer, who has not signed it", by({ signedBy: asha.privateKey }), "CERTIFICATE_UNTRUSTED"],
  [
    "whose issuer has another name, and the same key",
    by({ issuer: { ...issuing, name: nameOf("Another") } }),
    "CERTIFICATE_UNTRUSTED",
  ],
  ["that has expired", by({ to: inDays(-1) }), "CERTIFICATE_EXPIRED"],
  ["that is not valid yet", by({ from: inDays(1) }), "CERTIFICATE_NOT_YET_VALID"],
  ["with an authority that has expired", below(issuingWith({ to: inDays(-1) })), "CERTIFICATE_EXPIRED"],
  ["with a root that has expired", { root: authority("Root", { to: inDays(-1) }) }, "CERTIFICATE_EXPIRED"],
  ["signed with SHA-1", by({ hash: "sha1" }), "WEAK_ALGORITHM"],
  ["signed with MD5", by({ hash: "md5" }), "WEAK_ALGORITHM"],
  ["with an authority signed with SHA-1", below(issuingWith({ hash: "sha1" })), "WEAK_ALGORITHM"],
  ["of an RSA key of 1024 bits", by({ keyLabel: "small", keySize: 1024 }), "WEAK_ALGORITHM"],
  ["with an authority's key of 1024 bits", below(issuingWith({ keyLabel: "small CA", keySize: 1024 })), "WEAK_ALGORITHM"],
  [
    "with a critical extension that nobody knows",
    by({ extensions: personal({ more: [criticalUnknown] }) }),
    "CERTIFICATE_UNSUITABLE",
  ],
  ["with such an extension in an authority", below(issuingWith({ more: { more: [criticalUnknown] } })), "CERTIFICATE_UNSUITABLE"],
  ["with an extension that stands twice", by({ extensions: [...personal(), usage(0xc0)] }), "MALFORMED"],
  ["without a key usage", by({ extensions: personal({ use: null }) }), "CERTIFICATE_UNSUITABLE", true],
  ["for encryption alone", by({ extensions: personal({ use: usage(0x20) }) }), "CERTIFICATE_UNSUITABLE", true],
  ["for repudiable signatures alone", by({ extensions: personal({ use: usage(0x80) }) }), "accepted"],
  ["for servers alone", by({ extensions: personal({ purpose: purposes(["1.3.6.1.5.5.7.3.1"]) }) }), "CERTIFICATE_UNSUITABLE", true],
  ["for all purposes", by({ extensions: personal({ purpose: null }) }), "accepted"],
  [
    "that is an authority's",
    by({ extensions: personal({ basic: constraints(true), use: usage(0xc6) }) }),
    "CERTIFICATE_UNSUITABLE",
    true,
  ],
  ["by one that is no authority", below(certificate("Issuing", { issuer: root })), "CERTIFICATE_UNSUITABLE"],
  ["by an authority without basic constraints", below(issuingWith({ more: { basic: null } })), "CERTIFICATE_UNSUITABLE"],
  ["by an authority that may not issue certificates", below(issuingWith({ more: { use: usage(0x02) } })), "CERTIFICATE_UNSUITABLE"],
  ["by an authority of version 1", below(issuingWith({ version: 1 })), "CERTIFICATE_UNSUITABLE"],
  [
    "by an authority with name constraints, though not critical",
    below(issuingWith({ more: { more: [noConstraints] } })),
    "CERTIFICATE_UNSUITABLE",
  ],
];
for (const [
  what,
  { root: itsRoot = root, issuing: its = issuing, signer = asha },
  expected,
  openssl = expected === "accepted",
] of chains) {
  test(`A certificate ${what}: ${expected}`, async () => {
    assert.equal(await ofSigner(signer, { roots: [itsRoot.der], intermediates: [its.der] }), expected);
    if (!what.includes("name constraints"))
      assert.equal(await opensslTakes(signer, { roots: [itsRoot], between: [its] }), openssl, "openssl");
  });
}

test("The path length is kept", async () => {
  const chainBelow = (pathLength) => {
    const first = authority("First", { issuer: root, more: { basic: constraints(true, pathLength) } });
    const second = authority("Second", { issuer: first });
    return { signer: certificate("Asha Rao", { issuer: second }), between: [second, first] };
  };
  for (const [pathLength, expected] of [
    [null, "accepted"],
    [1, "accepted"],
    [0, "CERTIFICATE_UNSUITABLE"],
  ]) {
    const { signer, between } = chainBelow(pathLength);
    assert.equal(await ofSigner(signer, { intermediates: between.map((each) => each.pem).join("\n") }), expected);
    assert.equal(await opensslTakes(signer, { between }), expected === "accepted");
  }
});

test("A chain is too long with nine certificates", async () => {
  const between = [];
  for (let i = 0; i < 8; i++) between.unshift(authority(`Number ${i}`, { issuer: between[0] ?? root, keyLabel: "of all" }));
  const ofLength = (count) =>
    ofSigner(certificate("Asha Rao", { issuer: between[between.length - count] }), {
      intermediates: between.map((each) => each.der),
    });
  assert.deepEqual([await ofLength(6), await ofLength(7)], ["accepted", "CERTIFICATE_UNTRUSTED"]);
});

test("Authorities that sign each other in circles lead nowhere, soon", async () => {
  const labels = Array.from({ length: 6 }, (_, i) => `Circle ${i}`);
  const circle = labels.flatMap((label) =>
    labels.filter((other) => other !== label).map((other) => authority(label, { issuer: authority(other), keyLabel: label })),
  );
  const seconds = await secondsOf(async () => {
    assert.equal(
      await ofSigner(certificate("Asha Rao", { issuer: circle[0] }), { intermediates: circle.map((each) => each.der) }),
      "CERTIFICATE_UNTRUSTED",
    );
  });
  assert.ok(seconds < 4, `${seconds} s`);
});

test("Where one chain fails and another holds, the other counts", async () => {
  const old = issuingWith({ to: inDays(-1), keyLabel: "Issuing" });
  assert.equal(await ofSigner(asha, { intermediates: [old.der, issuing.der] }), "accepted");
  assert.equal(await ofSigner(asha, { intermediates: [old.der] }), "CERTIFICATE_EXPIRED");
});

test("An authority that the caller trusts is a root, and a signer's certificate is none", async () => {
  assert.equal(await ofSigner(asha, { roots: [issuing.der], intermediates: [] }), "accepted");
  assert.equal(await ofSigner(asha, { roots: [asha.der] }), "CERTIFICATE_UNTRUSTED");
  const own = certificate("Own");
  assert.equal(await ofSigner(own, { roots: [own.der] }), "CERTIFICATE_UNTRUSTED");
});

test("How a root has signed itself does not matter", async () => {
  const old = authority("Root", { hash: "sha1" });
  assert.equal(await ofSigner(asha, { roots: [old.der] }), "accepted");
});

test("The time may be another than now", async () => {
  const expired = certificate("Asha Rao", { issuer: issuing, from: inDays(-20), to: inDays(-10) });
  assert.equal(await ofSigner(expired, { at: inDays(-15) }), "accepted");
  assert.equal(await ofSigner(expired, { at: Date.now() - 25 * DAY }), "CERTIFICATE_NOT_YET_VALID");
});

test("The purposes may be the caller's own", async () => {
  const forServers = certificate("Asha Rao", {
    issuer: issuing,
    extensions: personal({ purpose: purposes(["1.3.6.1.5.5.7.3.1"]) }),
  });
  assert.equal(await ofSigner(forServers, { extendedKeyUsages: ["1.3.6.1.5.5.7.3.1"] }), "accepted");
  assert.equal(await ofSigner(asha, { extendedKeyUsages: ["1.3.6.1.5.5.7.3.1"] }), "CERTIFICATE_UNSUITABLE");
});

test("Roots may be PEM, DER or Base64, one or several", async () => {
  const other = authority("Other");
  for (const roots of [root.pem, root.der, root.der.toString("base64"), [other.pem, root.der], `${other.pem}\n${root.pem}`]) {
    assert.equal(await ofSigner(asha, { roots }), "accepted");
  }
  assert.equal(await ofSigner(asha, { roots: other.pem }), "CERTIFICATE_UNTRUSTED");
});

test("A certificate's extension that cannot be read is not passed over", async () => {
  const garbled = personal({ basic: extension("2.5.29.19", octets([1, 2])) });
  assert.equal(await ofSigner(certificate("Asha Rao", { issuer: issuing, extensions: garbled })), "MALFORMED");
});
