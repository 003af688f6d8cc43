// What other verifiers say of the same: the table of docs/verifying.md, made anew.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { after, test } from "node:test";

import { verifyGstReturn, verifyPdf, verifyPdfHash } from "quillmark-verify";

import { Judges, makeSignedPdf, runUnchecked } from "../lib/kit.mjs";
import {
  addresses,
  authority,
  certificate,
  crl,
  extension,
  inDays,
  integer,
  ocsp,
  pemOf,
  personal,
  usage,
  withRsa,
} from "./lib/issuing.mjs";
import { scratch } from "./lib/scratch.mjs";
import { contentType, digestOf, gstReturn, messageDigest, pdfSignature } from "./lib/signing.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const TEXT = "a text";
const { folder, file } = await scratch({ after });

// pdfsig's library wants an address of a list in the certificate, and asks it nothing.
const more = addresses({ crl: ["http://crl.example/ca.crl"] });
const root = authority("Root");
const asha = certificate("Asha Rao", { issuer: root, extensions: personal({ more }) });
const ravi = certificate("Ravi", { issuer: root, extensions: personal({ more }) });
const judges = new Judges(folder, await file("root.pem", root.pem));
const revokedList = crl(root, [[asha, inDays(-1)]]);
const withList = await file("root-and-list.pem", `${root.pem}${pemOf(revokedList, "X509 CRL")}`);
const trust = { roots: root.der, revocation: "none" };

const by = (options) => certificate("Asha Rao", { issuer: root, extensions: personal({ more }), ...options });
const unknown = extension("1.2.3.4", integer([1]), { critical: true });
const notAuthority = certificate("Issuing", { issuer: root });
const digest = digestOf(TEXT);
const twice = (one) => [contentType(), messageDigest(one), messageDigest(one)];
const inText = (from, to) => (bytes) => Buffer.from(bytes.toString("latin1").replace(from, to), "latin1");
const cutInHalf = (bytes) => bytes.subarray(0, bytes.length / 2);
const middleFlipped = (bytes, at = bytes.length >> 1) => Buffer.from(bytes.map((byte, i) => (i === at ? byte ^ 1 : byte)));

/** What is handed in: [what it is, { signer, options, change, verify, only }]. `only`: of which kinds there is such a thing. */
const INPUTS = [
  ["as the host makes it", {}],
  [
    "other content",
    {
      change: {
        text: inText(TEXT, "A text"),
        digest: () => pdfSignature(asha, digestOf("A text")),
        pdf: inText("Approval", "approval"),
      },
    },
  ],
  ["by another key", { options: { key: ravi.privateKey } }],
  ["of another root of the same name", { signer: by({ issuer: authority("Root", { keyLabel: "other" }) }) }],
  ["signed by itself, with the root's name", { signer: certificate("Root", { keyLabel: "own", extensions: personal({ more }) }) }],
  ["expired", { signer: by({ to: inDays(-1) }) }],
  ["not valid yet", { signer: by({ from: inDays(1) }) }],
  ["revoked, by a list", { verify: { revocation: "require", crls: revokedList }, openssl: { list: true } }],
  ["revoked, by OCSP", { verify: { revocation: "require", ocspResponses: ocsp(asha, root, { status: "revoked" }) } }],
  ["nobody says whether it was revoked", { verify: { revocation: "require" } }],
  ["a digest by SHA-1", { only: ["text", "digest"], options: { hash: "sha1" } }],
  ["a certificate signed with SHA-1", { signer: by({ hash: "sha1" }) }],
  ["a key of 1024 bits", { signer: by({ keyLabel: "small", keySize: 1024 }) }],
  ["no key usage for signing", { signer: by({ extensions: personal({ more, use: usage(0x20) }) }) }],
  ["an unknown critical extension", { signer: by({ extensions: personal({ more: [...more, unknown] }) }) }],
  [
    "an intermediate that is no authority",
    (() => {
      const signer = by({ issuer: notAuthority });
      return { signer, options: { certificates: [signer, notAuthority] } };
    })(),
  ],
  ["certificates beside the chain", { options: { certificates: [ravi, asha, root] } }],
  ["the same signer twice", { options: { signers: (one) => [one, one] } }],
  ["no digest in the signed attributes", { only: ["digest", "pdf"], options: { attributes: [contentType()] } }],
  ["the digest twice in them", { only: ["digest"], options: { attributes: twice(digest) } }],
  ["two hash algorithms", { options: { algorithm: withRsa("sha512") } }],
  ["cut in half", { change: { text: cutInHalf, digest: cutInHalf, pdf: cutInHalf } }],
  [
    "a flipped bit in the signature",
    {
      change: {
        text: (b) => middleFlipped(b, b.length - 9),
        digest: (b) => middleFlipped(b, b.length - 9),
        pdf: inText(/(?<=04820100.{40})./, (digit) => (digit === "0" ? "1" : "0")),
      },
    },
  ],
  [
    "something behind it",
    {
      change: {
        text: (b) => Buffer.concat([b, Buffer.from("\n")]),
        digest: (b) => Buffer.concat([b, Buffer.from("\n")]),
        pdf: (b) => Buffer.concat([b, Buffer.from("\n3 0 obj\n<< >>\nendobj\n")]),
      },
    },
  ],
  [
    "another byte range",
    { only: ["pdf"], change: { pdf: inText(/(?<=ByteRange \[ ?0 )\d+/, (gap) => String(gap - 20).padEnd(gap.length)) } },
  ],
  [
    "a byte range that leaves out the end",
    { only: ["pdf"], change: { pdf: inText(/(?<=ByteRange \[ ?0 \d+ \d+ )\d+/, (rest) => String(rest - 20).padEnd(rest.length)) } },
  ],
];

const accepts = async (command, args) => ((await runUnchecked(command, args)).code === 0 ? "yes" : "no");
const ours = async (promise) => {
  const verdict = await verdictOf(promise);
  return verdict === "accepted" ? "yes" : verdict;
};

/** Openssl's word, by the newer command and the older one. */
async function byOpenssl(der, { detached = false, list = false } = {}) {
  const content = detached ? ["-content", await file("content", TEXT)] : [];
  const args = [
    "-verify",
    "-binary",
    "-inform",
    "DER",
    "-purpose",
    "any",
    "-in",
    await file("in.der", der),
    ...content,
    "-CAfile",
    list ? withList : judges.caPem,
    ...(list ? ["-crl_check"] : []),
  ];
  return [await accepts("openssl", ["cms", ...args]), await accepts("openssl", ["smime", ...args])];
}

async function rowOf(
  what,
  { signer = asha, options = {}, change = {}, verify = {}, openssl = {}, only = ["text", "digest", "pdf"] },
) {
  const made = {
    text: () => gstReturn(signer, TEXT, options),
    digest: () => pdfSignature(signer, options.hash ? digestOf(TEXT, options.hash) : digest, options),
    pdf: () =>
      makeSignedPdf(["A contract"], (hash) => pdfSignature(signer, Buffer.from(hash, "base64"), options).toString("base64")),
  };
  const handed = {};
  for (const kind of only) handed[kind] = (change[kind] ?? ((bytes) => bytes))(await made[kind]());
  const none = ["", "", ""];
  const text = handed.text
    ? [
        await ours(verifyGstReturn({ ...trust, ...verify, cms: handed.text, text: TEXT })),
        ...(await byOpenssl(handed.text, openssl)),
      ]
    : none;
  const hashed = handed.digest
    ? [
        await ours(
          verifyPdfHash({ ...trust, ...verify, pkcs7: handed.digest, hash: options.hash ? digestOf(TEXT, options.hash) : digest }),
        ),
        ...(await byOpenssl(handed.digest, { ...openssl, detached: true })),
      ]
    : none;
  const pdf = handed.pdf
    ? [
        await ours(verifyPdf({ ...trust, ...verify, pdf: handed.pdf })),
        await judges.pdf(handed.pdf).then(
          () => "yes",
          () => "no",
        ),
      ]
    : ["", ""];
  return `| ${[what, ...text, ...hashed, ...pdf].join(" | ")} |`;
}

test("The table of docs/verifying.md is what the judges say", async () => {
  const rows = [];
  for (const [what, input] of INPUTS) rows.push(await rowOf(what, input));
  const document = await readFile(new URL("../../docs/verifying.md", import.meta.url), "utf8");
  assert.equal(
    document.slice(document.indexOf("|---")).split("\n").slice(1).join("\n").trim(),
    rows.join("\n"),
    `The judges say:\n${rows.join("\n")}`,
  );
});
