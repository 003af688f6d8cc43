// What the real host signs with a soft token, and what the extension makes of it, is what the verifier accepts.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { after, test } from "node:test";

import { PDFDocument } from "pdf-lib";
import { newChallenge, verifyAuthToken, verifyGstReturn, verifyJws, verifyPdf, verifyPdfHash } from "quillmark-verify";

import { extended, timeStampRequest, tokenIn } from "../../extension/src/pdf/cms.js";
import { Signer } from "../extension/pdf/sign.mjs";
import { TimeStampAuthority } from "../extension/pdf/time-stamps.mjs";
import { chooseAndLogIn, chooseFirst, makeSignedPdf, World } from "../lib/kit.mjs";
import { product } from "../lib/quillmark.mjs";
import { verdictOf } from "./lib/verdicts.mjs";

const world = World.forThisFile(product);
const SITE = "https://portal.example.com";
const HASHES = ["SHA-256", "SHA-384", "SHA-512"];

const person = () => world.certificate("Asha Rao", { email: "asha@example.com" });
const trust = () => ({ roots: world.authority.own.bytes, revocation: "none" });

/** A host whose user has chosen the certificate and typed the PIN: sign(request) gives what it signs. */
async function signingHost(t) {
  const host = await world.host(t, { token: await world.softToken(t, { pairs: [[await person(), "a1b2c3"]] }) });
  let isLoggedIn = false;
  return async (request) => {
    const ask = request.certThumbPrint ? (given, wanted) => given.request(wanted) : isLoggedIn ? chooseFirst : chooseAndLogIn;
    const { status_cd: succeeded, result } = await ask(host, request);
    assert.equal(succeeded, 1, result);
    isLoggedIn = true;
    return result;
  };
}

test("Logins, returns and JWS of the host are accepted", async (t) => {
  const sign = await signingHost(t);
  for (const hashAlgorithm of HASHES) {
    const challenge = newChallenge({ site: SITE });
    const signature = await sign({ action: "SignAuthToken", authToken: challenge, hashAlgorithm });
    const login = { ...trust(), signature, challenge, site: SITE, certificate: (await person()).bytes, hashAlgorithm };
    const { signer } = await verifyAuthToken(login);
    assert.deepEqual([signer.name, signer.email, signer.thumbprint], ["Asha Rao", "asha@example.com", (await person()).thumbprint]);
    assert.equal(await verdictOf(verifyAuthToken({ ...login, challenge: newChallenge({ site: SITE }) })), "SIGNATURE_INVALID");
    assert.equal(await verdictOf(verifyAuthToken({ ...login, site: "https://other.example.com" })), "CHALLENGE_INVALID");

    const text = `{"name": "Gewürze €", "hash": "${hashAlgorithm}"}`;
    const cms = await sign({ action: "GSTReturnSign", hash: text, hashAlgorithm });
    assert.equal((await verifyGstReturn({ ...trust(), cms })).text, text);
    assert.equal(await verdictOf(verifyGstReturn({ ...trust(), cms, text: `${text} ` })), "CONTENT_MISMATCH");

    const header = { alg: hashAlgorithm.replace("SHA-", "RS"), x5c: [(await person()).bytes.toString("base64")] };
    const input = [JSON.stringify(header), "a payload"].map((part) => Buffer.from(part).toString("base64url")).join(".");
    const raw = Buffer.from(await sign({ action: "SignAuthToken", authToken: input, hashAlgorithm }), "base64");
    assert.equal(
      Buffer.from((await verifyJws({ ...trust(), jws: `${input}.${raw.toString("base64url")}` })).payload).toString(),
      "a payload",
    );
  }
});

test("The host's signatures of digests, and a PDF file with one, are accepted", async (t) => {
  const sign = await signingHost(t);
  await sign({ action: "SignAuthToken", authToken: "x" });
  const { thumbprint: certThumbPrint } = await person();
  for (const hashAlgorithm of HASHES) {
    let document = "a document"; // one whose digest has no zero byte: the host hands it over up to that
    const digest = () => createHash(hashAlgorithm.replace("-", "").toLowerCase()).update(document).digest();
    while (digest().includes(0)) document += ".";
    const hash = digest().toString("base64");
    const pkcs7 = await sign({ action: "PdfSignFromToken", hash, certThumbPrint, hashAlgorithm });
    assert.equal((await verifyPdfHash({ ...trust(), pkcs7, hash, hashAlgorithm })).signer.name, "Asha Rao");
  }
  const pdf = await makeSignedPdf(["A contract"], (hash) => sign({ action: "PdfSignFromToken", hash, certThumbPrint }));
  const {
    signatures: [{ signer, coversWholeFile }],
  } = await verifyPdf({ ...trust(), pdf });
  assert.deepEqual([signer.thumbprint, coversWholeFile], [certThumbPrint, true]);
});

test("A SHA-1 signature of the host, which is none, is refused", async (t) => {
  const sign = await signingHost(t);
  const cms = await sign({ action: "GSTReturnSign", hash: "a text", hashAlgorithm: "SHA1" });
  assert.equal(await verdictOf(verifyGstReturn({ ...trust(), cms })), "WEAK_ALGORITHM");
});

test("A file of the extension with a chain and a time stamp is accepted, with the time", async () => {
  const signer = await Signer.create();
  after(() => signer.remove());
  const stamps = await TimeStampAuthority.create(signer);
  const document = await PDFDocument.create();
  document.addPage().drawText("A contract");
  const chain = [signer.authority.own.bytes];
  const stampedAndChained = async (signature) => {
    const asked = await timeStampRequest(signature);
    return extended(signature, { chain, token: await tokenIn(await stamps.answer(asked.request), asked) });
  };
  const once = await signer.sign(await document.save(), {}, stampedAndChained);
  const roots = signer.authority.own.bytes;
  const {
    signatures: [{ timestamp, coversWholeFile }],
  } = await verifyPdf({ roots, timestampRoots: roots, revocation: "none", pdf: once });
  assert.deepEqual([timestamp.trusted, timestamp.authority.name, coversWholeFile], [true, "Test TSA", true]);
  const twice = await signer.sign(once);
  const { signatures } = await verifyPdf({ roots, revocation: "none", pdf: twice });
  assert.deepEqual(
    signatures.map((each) => each.coversWholeFile),
    [false, true],
  );
});
