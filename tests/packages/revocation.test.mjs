// Who was revoked, by lists and by OCSP, given and fetched.

import assert from "node:assert/strict";
import { test } from "node:test";

import { verifyGstReturn } from "quillmark-verify";

import { runUnchecked } from "../lib/kit.mjs";
import {
  addresses,
  authority,
  authoritys,
  certificate,
  crl,
  extension,
  inDays,
  integer,
  ocsp,
  pemOf,
  personal,
  purposes,
  sequence,
  usage,
} from "./lib/issuing.mjs";
import { scratch } from "./lib/scratch.mjs";
import { der, gstReturn, people } from "./lib/signing.mjs";
import { secondsOf, verdictOf } from "./lib/verdicts.mjs";

const { root, issuing, asha } = people();
const ofRoot = crl(root);
const [REVOKED, UNKNOWN] = ["CERTIFICATE_REVOKED", "REVOCATION_UNKNOWN"];

const verified = ({ signer = asha, ...options }) =>
  verifyGstReturn({ roots: root.der, intermediates: issuing.der, cms: gstReturn(signer, "a text"), ...options });
const verdict = (options) => verdictOf(verified(options));

/** The verdict with a good list about the authority, and this about the signer. */
const withCrl = (list, more = {}) => verdict({ crls: [ofRoot, list], ...more });
const withOcsp = (response, more = {}) => verdict({ crls: [ofRoot], ocspResponses: [response], ...more });

const revoked = (at = inDays(-5)) => crl(issuing, [[asha, at]]);

test("A list without the certificate is good for it, and one with it is not", async () => {
  assert.equal((await verified({ crls: [ofRoot, crl(issuing)] })).revocation, "good");
  assert.equal(await withCrl(crl(issuing, [[certificate("Other", { issuer: issuing }), inDays(-5)]])), "accepted");
  assert.equal(await withCrl(revoked()), REVOKED);
  assert.equal(await verdict({ crls: [crl(issuing), crl(root, [[issuing, inDays(-5)]])] }), REVOKED);
});

test("An OCSP response is good for its certificate alone", async () => {
  assert.equal((await verified({ crls: [ofRoot], ocspResponses: [ocsp(asha, issuing)] })).revocation, "good");
  assert.equal(await withOcsp(ocsp(asha, issuing, { idHash: "sha256" })), "accepted");
  assert.equal(await withOcsp(ocsp(asha, issuing, { status: "revoked" })), REVOKED);
  assert.equal(await withOcsp(ocsp(asha, issuing, { status: "unknown" })), UNKNOWN);
  assert.equal(await withOcsp(ocsp(certificate("Other", { issuer: issuing }), issuing)), UNKNOWN);
  assert.equal(await withOcsp(ocsp(asha, root)), UNKNOWN);
  assert.equal(await withOcsp(ocsp(asha, issuing, { idHash: "md5" })), UNKNOWN);
});

test("What is revoked anywhere is revoked", async () => {
  assert.equal(await withOcsp(ocsp(asha, issuing), { crls: [ofRoot, revoked()] }), REVOKED);
  assert.equal(await withCrl(crl(issuing), { ocspResponses: [ocsp(asha, issuing, { status: "revoked" })] }), REVOKED);
  assert.equal(await verdict({ crls: [ofRoot, crl(issuing), revoked()] }), REVOKED);
});

test("Without an answer the policy decides", async () => {
  assert.equal(await verdict({}), UNKNOWN);
  assert.equal(await verdict({ crls: [ofRoot] }), UNKNOWN);
  assert.equal(await verdict({ crls: [crl(issuing)] }), UNKNOWN);
  assert.equal((await verified({ revocation: "if-available" })).revocation, "unknown");
  assert.equal((await verified({ revocation: "if-available", crls: [crl(issuing)] })).revocation, "unknown");
  assert.equal(await verdict({ revocation: "if-available", crls: [revoked()] }), REVOKED);
  assert.equal((await verified({ revocation: "none", crls: [revoked()] })).revocation, "unchecked");
});

const issuersTwin = authority("Issuing", { keyLabel: "twin", issuer: root });
const withoutListSigning = authority("Issuing", { issuer: root, more: { use: usage(0x04) } });
const critical = (id, value = integer([1])) => extension(id, value, { critical: true });
const point = (...content) => critical("2.5.29.28", sequence(...content));
const pointAt = (address) => point(der(0xa0, der(0xa0, der(0x86, Buffer.from(address)))));

const uselessLists = [
  ["of another issuer", crl(root)],
  ["signed by another authority of the same name", crl(issuersTwin)],
  ["with a wrong signature", crl(issuing, [], { signedBy: asha })],
  ["that is stale", crl(issuing, [], { from: inDays(-3), to: inDays(-1) })],
  ["of a time to come", crl(issuing, [], { from: inDays(1), to: inDays(2) })],
  ["without an end, of yesterday", crl(issuing, [], { to: null })],
  ["signed with SHA-1", crl(issuing, [], { hash: "sha1" })],
  ["that names two algorithms", crl(issuing, [], { innerHash: "sha512" })],
  ["with a critical extension that nobody knows", crl(issuing, [], { extensions: [critical("1.2.3.4")] })],
  ["that is only a change of another", crl(issuing, [], { extensions: [critical("2.5.29.27")] })],
  ["of authorities alone", crl(issuing, [], { extensions: [point(der(0x82, [0xff]))] })],
  ["of attribute certificates alone", crl(issuing, [], { extensions: [point(der(0x85, [0xff]))] })],
  ["for some reasons alone", crl(issuing, [], { extensions: [point(der(0x83, [0, 0x40]))] })],
  ["of other issuers, too", crl(issuing, [], { extensions: [point(der(0x84, [0xff]))] })],
  ["of another distribution point", crl(issuing, [], { extensions: [pointAt("http://crl.example/other")] })],
  [
    "with an entry of another issuer's",
    crl(issuing, [[certificate("Other"), inDays(-5)]], { entryExtensions: [critical("2.5.29.29", sequence())] }),
  ],
  ["that is cut off", crl(issuing).subarray(0, 200)],
  ["that is none", asha.der],
  ["that is no ASN.1", Buffer.from("nonsense")],
];
for (const [what, list] of uselessLists) {
  test(`A list ${what} says nothing`, async () => {
    assert.equal(await withCrl(list), UNKNOWN);
    assert.equal(await withCrl(list, { revocation: "if-available" }), "accepted");
    assert.equal(await verdict({ crls: [ofRoot, list, crl(issuing)] }), "accepted");
  });
}

test("A list by an authority that may not sign lists says nothing", async () => {
  const signer = certificate("Asha Rao", { issuer: withoutListSigning });
  assert.equal(await verdict({ signer, intermediates: withoutListSigning.der, crls: [ofRoot, crl(withoutListSigning)] }), UNKNOWN);
});

test("A list for a part of the certificates counts for these", async () => {
  const address = "http://crl.example/one";
  const signer = certificate("Asha Rao", { issuer: issuing, extensions: personal({ more: addresses({ crl: [address] }) }) });
  assert.equal(await withCrl(crl(issuing, [], { extensions: [point(der(0x81, [0xff]))] })), "accepted");
  assert.equal(await withCrl(crl(issuing, [], { extensions: [pointAt(address)] }), { signer }), "accepted");
  assert.equal(await withCrl(crl(issuing, [[signer, inDays(-1)]], { extensions: [pointAt(address)] }), { signer }), REVOKED);
});

const responder = (more = {}) =>
  certificate("Responder", { issuer: issuing, extensions: personal({ purpose: purposes(["1.3.6.1.5.5.7.3.9"]) }), ...more });
const by = (one) => ocsp(asha, issuing, { responder: one, certificates: [one] });

test("An OCSP response by somebody whom the issuer has certified for it is one of the issuer's", async () => {
  assert.equal(await withOcsp(by(responder())), "accepted");
});

const uselessResponses = [
  ["by somebody else of the issuer's", by(certificate("Other", { issuer: issuing }))],
  ["by a responder of another issuer's", by(responder({ issuer: root }))],
  ["by a responder that has expired", by(responder({ to: inDays(-1) }))],
  ["by a responder that has certified itself", by(responder({ issuer: null }))],
  ["by a responder certified with SHA-1", by(responder({ hash: "sha1" }))],
  ["by a responder who is not named in it", ocsp(asha, issuing, { responder: responder() })],
  ["by another authority of the same name", ocsp(asha, issuing, { responder: issuersTwin })],
  ["that is stale", ocsp(asha, issuing, { from: inDays(-3), to: inDays(-1) })],
  ["of a time to come", ocsp(asha, issuing, { from: inDays(1), to: inDays(2) })],
  ["without an end, of yesterday", ocsp(asha, issuing, { to: null })],
  ["signed with SHA-1", ocsp(asha, issuing, { hash: "sha1" })],
  ["that is cut off", ocsp(asha, issuing).subarray(0, 200)],
  ["that says it is an error", ocsp(asha, issuing, { outcome: 1 })],
  ["with a critical extension", ocsp(asha, issuing, { extensions: [critical("1.2.3.4")] })],
  ["with a critical extension of the answer", ocsp(asha, issuing, { answerExtensions: [critical("1.2.3.4")] })],
  ["that is an error", sequence(der(0x0a, [6]))],
  ["that is no ASN.1", Buffer.from("nonsense")],
];
for (const [what, response] of uselessResponses) {
  test(`An OCSP response ${what} says nothing`, async () => {
    assert.equal(await withOcsp(response), UNKNOWN);
    assert.equal(await withOcsp(response, { revocation: "if-available" }), "accepted");
  });
}

test("Extensions that are not critical change nothing", async () => {
  const nonce = extension("1.3.6.1.5.5.7.48.1.2", integer([1]));
  assert.equal(await withOcsp(ocsp(asha, issuing, { extensions: [nonce], answerExtensions: [nonce] })), "accepted");
  const reason = extension("2.5.29.21", der(0x0a, [1]));
  const others = [[certificate("Other", { issuer: issuing }), inDays(-5)]];
  assert.equal(await withCrl(crl(issuing, others, { extensions: [nonce], entryExtensions: [reason] })), "accepted");
});

test("What was revoked later was good before", async () => {
  const before = { at: inDays(-10) };
  assert.equal(await withCrl(revoked(inDays(-5)), before), "accepted");
  assert.equal(await withOcsp(ocsp(asha, issuing, { status: "revoked", at: inDays(-5) }), before), "accepted");
  assert.equal(await withCrl(revoked(inDays(-15)), before), REVOKED);
});

test("A list that was made when the certificate had expired says nothing of it", async () => {
  const signer = certificate("Asha Rao", { issuer: issuing, to: inDays(-2) });
  assert.equal(await withCrl(crl(issuing), { signer, at: inDays(-3) }), UNKNOWN);
  assert.equal(await withCrl(crl(issuing, [], { from: inDays(-3) }), { signer, at: inDays(-3) }), "accepted");
});

test("Bits that are flipped in what says that a certificate was revoked never make it good", async () => {
  for (const [option, bytes] of [
    ["crls", revoked()],
    ["ocspResponses", ocsp(asha, issuing, { status: "revoked" })],
  ]) {
    for (let bit = 0; bit < bytes.length * 8; bit += 61) {
      const flipped = Buffer.from(bytes);
      flipped[bit >> 3] ^= 1 << (bit & 7);
      const answer = await verdict({
        crls: [ofRoot],
        ...(option === "crls" ? { crls: [ofRoot, flipped] } : { [option]: [flipped] }),
      });
      assert.ok([REVOKED, UNKNOWN].includes(answer), `${option}, bit ${bit}: ${answer}`);
    }
  }
});

test("Openssl reads these lists and responses as we do", async (t) => {
  const { file } = await scratch(t);
  const [rootPem, issuingPem, ashaPem] = [
    await file("root", root.pem),
    await file("issuing", issuing.pem),
    await file("asha", asha.pem),
  ];
  for (const [bytes, revokedOne] of [
    [crl(issuing), false],
    [revoked(), true],
  ]) {
    const lists = await file("lists", `${pem(ofRoot)}\n${pem(bytes)}`);
    const { stderr } = await runUnchecked("openssl", [
      "verify",
      "-crl_check_all",
      "-CAfile",
      rootPem,
      "-untrusted",
      issuingPem,
      "-CRLfile",
      lists,
      ashaPem,
    ]);
    assert.equal(stderr.includes("certificate revoked"), revokedOne, stderr);
    assert.equal(stderr === "", !revokedOne, stderr);
  }
  for (const [status, words] of [
    ["good", /: good/],
    ["revoked", /: revoked/],
  ]) {
    for (const one of [
      ocsp(asha, issuing, { status }),
      ocsp(asha, issuing, { status, responder: responder(), certificates: [responder()] }),
    ]) {
      const { stdout, stderr } = await runUnchecked("openssl", [
        "ocsp",
        "-respin",
        await file("response", one),
        "-issuer",
        issuingPem,
        "-cert",
        ashaPem,
        "-CAfile",
        rootPem,
        "-verify_other",
        issuingPem,
      ]);
      assert.match(`${stdout}${stderr}`, /Response verify OK/);
      assert.match(`${stdout}`, words);
    }
  }
});

const pem = (bytes) => pemOf(bytes, "X509 CRL");

// What is fetched.

const OCSP_ADDRESS = "http://ocsp.example/";
const CRL_ADDRESS = "http://crl.example/issuing.crl";
const online = authority("Issuing", {
  issuer: root,
  extensions: authoritys({ more: addresses({ crl: ["http://crl.example/root.crl"] }) }),
});
const signerWith = (where) => certificate("Asha Rao", { issuer: online, extensions: personal({ more: addresses(where) }) });

/** A fetch that answers with these bytes by address, and writes down what was asked. */
function web(answers) {
  const asked = [];
  const fetch = async (url, init) => {
    asked.push({ url, ...init });
    const answer = { "http://crl.example/root.crl": ofRoot, ...answers }[url];
    if (typeof answer === "function") return answer(init);
    return answer ? new Response(answer) : new Response("", { status: 404 });
  };
  return { asked, fetch, urls: () => asked.map(({ url }) => url) };
}

test("Lists and responses are fetched from the addresses in the certificate, the authority's first", async (t) => {
  const signer = signerWith({ ocsp: [OCSP_ADDRESS], crl: [CRL_ADDRESS] });
  const good = web({ [OCSP_ADDRESS]: ocsp(signer, online) });
  assert.equal((await verified({ signer, intermediates: online.der, fetch: good.fetch })).revocation, "good");
  assert.deepEqual(good.urls(), ["http://crl.example/root.crl", OCSP_ADDRESS]);
  const [, asked] = good.asked;
  assert.deepEqual([asked.method, asked.redirect, asked.headers["content-type"]], ["POST", "error", "application/ocsp-request"]);
  const { file } = await scratch(t);
  const request = await file("request", Buffer.from(asked.body));
  const { stdout } = await runUnchecked("openssl", ["ocsp", "-reqin", request, "-req_text"]);
  assert.match(stdout.toString(), new RegExp(`Serial Number: ${Buffer.from(signer.serial).toString("hex")}`, "i"));

  const bad = web({ [CRL_ADDRESS]: crl(online, [[signer, inDays(-5)]]) });
  assert.equal(await verdict({ signer, intermediates: online.der, fetch: bad.fetch }), REVOKED);
  assert.deepEqual(bad.urls(), ["http://crl.example/root.crl", OCSP_ADDRESS, CRL_ADDRESS]);
});

test("Nothing is fetched for a certificate that leads to no root, nor where the answer is there", async () => {
  const signer = signerWith({ crl: [CRL_ADDRESS] });
  const { asked, fetch } = web({});
  assert.equal(await verdict({ signer, intermediates: [], fetch }), "CERTIFICATE_UNTRUSTED");
  assert.equal(await verdict({ signer, intermediates: online.der, fetch, crls: [ofRoot, crl(online)] }), "accepted");
  assert.equal(await verdict({ signer, intermediates: online.der, fetch, revocation: "none" }), "accepted");
  assert.equal(asked.length, 0);
});

test("Only http is asked, and of each kind two addresses", async () => {
  const crls = [
    "ldap://crl.example/",
    "https://crl.example/",
    "file:///etc/passwd",
    "http://one.example/",
    "http://two.example/",
    "http://three.example/",
  ];
  const { urls, fetch } = web({});
  assert.equal(await verdict({ signer: signerWith({ crl: crls }), intermediates: online.der, fetch }), UNKNOWN);
  assert.deepEqual(urls(), ["http://crl.example/root.crl", "http://one.example/", "http://two.example/"]);
});

test("An answer that is too long, fails or is no answer is none", async () => {
  const signer = signerWith({ crl: [CRL_ADDRESS] });
  const endless = () => new Response(new ReadableStream({ pull: (controller) => controller.enqueue(new Uint8Array(1024 * 1024)) }));
  const answers = [
    endless,
    () => {
      throw new Error("no network");
    },
    () => null,
    () => ({ ok: true }),
    () => new Response("nonsense"),
    () => new Response(crl(online), { status: 500 }),
  ];
  for (const answer of answers) {
    const { fetch } = web({ [CRL_ADDRESS]: answer });
    assert.equal(await verdict({ signer, intermediates: online.der, fetch }), UNKNOWN);
  }
});

test("An answer that does not come is waited for ten seconds", async (t) => {
  const { setTimeout: realTimeout } = globalThis;
  t.after(() => Object.assign(globalThis, { setTimeout: realTimeout }));
  const waits = [];
  globalThis.setTimeout = (act, milliseconds) => {
    waits.push(milliseconds);
    return realTimeout(act, 10);
  };
  let asked;
  const { fetch } = web({ [CRL_ADDRESS]: ({ signal }) => new Promise(() => (asked = signal)) });
  assert.equal(await verdict({ signer: signerWith({ crl: [CRL_ADDRESS] }), intermediates: online.der, fetch }), UNKNOWN);
  assert.deepEqual([waits.at(-1), asked.aborted], [10_000, true]);
});

test("A list of 20,000 entries is read", async () => {
  const entries = Array.from({ length: 20_000 }, (_, i) => [{ serial: [0x55, i >> 16, (i >> 8) & 255, i & 255] }, inDays(-5)]);
  const list = crl(issuing, [...entries, [asha, inDays(-5)]]);
  const seconds = await secondsOf(async () => assert.equal(await withCrl(list), REVOKED));
  assert.ok(seconds < 4, `${seconds} s`);
  assert.equal(await withCrl(crl(issuing, entries)), "accepted");
});
