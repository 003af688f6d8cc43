// What pages sign with the packed page library, JWS and XML among it, with the real host on a soft token; judged by others.

import assert from "node:assert/strict";
import { createHash, createVerify, webcrypto, X509Certificate } from "node:crypto";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";
import { before, test } from "node:test";

import { DOMImplementation, DOMParser, XMLSerializer } from "@xmldom/xmldom";
import { compactVerify, importX509 } from "jose";
import { Application } from "xadesjs";
import { setNodeDependencies } from "xml-core";
import * as xpath from "xpath";

import { bytesOf, runUnchecked, World } from "../lib/kit.mjs";
import { product } from "../lib/quillmark.mjs";
import { Page } from "./lib/page.mjs";

globalThis.crypto ??= webcrypto;

const world = World.forThisFile(product);
const XML = '<?xml version="1.0"?><!-- an order --><order xmlns="urn:x" xmlns:y="urn:y"><item y:n="1">Tea &amp; नमस्ते</item>\n<total>100</total></order>';
const HASHES = ["SHA-256", "SHA-384", "SHA-512"];


// Browsers give a document that tells of the error, where xmldom throws or only warns.
class TellingDOMParser {
  parseFromString(text, type) {
    try {
      return new DOMParser({ onError: (level, words) => assert.fail(words) }).parseFromString(text, type);
    } catch ({ message }) {
      return new DOMParser().parseFromString(`<parsererror>${message.replace(/[<&]/g, "")}</parsererror>`, type);
    }
  }
}

let library, jws, xml;

before(async () => {
  readXmlAsBrowsersDo();
  [library, jws, xml] = await Page.load(world, { others: ["xadesjs"], names: ["quillmark", "quillmark/jws", "quillmark/xml"] });
});

// What every browser has.
function readXmlAsBrowsersDo() {
  Object.assign(globalThis, { DOMParser: TellingDOMParser, XMLSerializer });
  setNodeDependencies({ DOMParser, XMLSerializer, DOMImplementation, xpath });
  Application.setEngine("Node.js", webcrypto);
}

test("A signature with its certificate verifies with that certificate's key", async (t) => {
  await Page.open(t, world);
  for (const hashAlgorithm of HASHES) {
    const { signature, certificate } = await library.signAuthTokenWithCertificate("log me in", { hashAlgorithm });
    const { publicKey } = new X509Certificate(bytesOf(certificate.Cert));
    const verify = createVerify(hashAlgorithm.replace("-", ""));
    assert.ok(verify.update("log me in").verify(publicKey, signature, "base64"), hashAlgorithm);
  }
});

test("Another certificate chosen for the signature than before is told as such, and gives no signature", async (t) => {
  await Page.open(t, world, { rows: [0, 1] });
  const request = library.signAuthTokenWithCertificate("log me in", { lang: "de" });
  await assert.rejects(request, { code: "CERTIFICATE_NOT_FOUND", message: library.messageOf("CERTIFICATE_NOT_FOUND", "de") });
});

test("A JWS verifies with the certificate in its header, whose thumbprint it names", async (t) => {
  await Page.open(t, world);
  for (const [hashAlgorithm, alg] of [["SHA-256", "RS256"], ["SHA-384", "RS384"], ["SHA-512", "RS512"]]) {
    const signed = await jws.signJws({ amount: 1250, to: "नमस्ते" }, { hashAlgorithm, header: { typ: "order+jws", alg: "none" } });
    const header = JSON.parse(Buffer.from(signed.split(".")[0], "base64url"));
    const { payload, protectedHeader } = await compactVerify(signed, await importX509(pemOf(header.x5c[0]), alg));
    assert.deepEqual(JSON.parse(Buffer.from(payload)), { amount: 1250, to: "नमस्ते" });
    assert.equal(protectedHeader.typ, "order+jws");
    assert.equal(protectedHeader.alg, alg);
    const thumbprint = createHash("sha256").update(bytesOf(header.x5c[0])).digest("base64url");
    assert.equal(protectedHeader["x5t#S256"], thumbprint);
  }
});

test("A hash algorithm that JWS has no name for here is refused before the user is asked", async () => {
  Page.close();
  const refusal = { code: "UNSUPPORTED_HASH", message: library.messageOf("UNSUPPORTED_HASH", "de") };
  await assert.rejects(jws.signJws("text", { hashAlgorithm: "SHA-1", lang: "de" }), refusal);
  await assert.rejects(xml.signXml("<a/>", { hashAlgorithm: "SHA-1", lang: "de" }), refusal);
});

test("xmlsec1 finds a signed XML document valid, and one with a changed amount, time or certificate not", async (t) => {
  await Page.open(t, world);
  for (const hashAlgorithm of HASHES) {
    const signed = await xml.signXml(XML, { hashAlgorithm });
    assert.equal(await xmlsec(signed), 0, hashAlgorithm);
    for (const [found, put] of [[">100<", ">900<"], [/(<xades:SigningTime>)\d/, "$13"], [/(<xades:CertDigest>.*?DigestValue>)./, "$1!"]]) {
      const changed = signed.replace(found, put);
      assert.notEqual(changed, signed);
      assert.notEqual(await xmlsec(changed), 0, `${found}`);
    }
  }
});

test("What is no XML document, or has a document type, is refused before the user is asked", async () => {
  Page.close();
  for (const text of ["", "no XML", "<a>", '<!DOCTYPE a [<!ENTITY e "100">]><a>&e;</a>', "<!DOCTYPE a><a/>"]) {
    await assert.rejects(xml.signXml(text), { code: "INVALID_ARGUMENT" }, text);
  }
});

const pemOf = (base64) => new X509Certificate(bytesOf(base64)).toString();

/** Ends with 0 for a valid signature by a certificate of the authority. */
async function xmlsec(text) {
  const file = join(world.folder, "signed.xml");
  await writeFile(file, text);
  const options = ["--enabled-key-data", "x509", "--id-attr:Id", "SignedProperties", "--trusted-pem", world.authority.certificate];
  return (await runUnchecked("xmlsec1", ["--verify", ...options, file])).code;
}
