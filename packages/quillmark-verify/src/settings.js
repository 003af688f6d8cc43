/** What the caller hands in, looked at once. */

import { X509Certificate } from "node:crypto";

import { Certificate } from "./certificate.js";
import { VerificationError } from "./error.js";

export const POLICIES = ["require", "if-available", "none"];

/** Whose certificates may sign: persons' logins, mail and documents. RFC 5280, section 4.2.1.12, and RFC 9336. */
export const SIGNING_PURPOSES = [
  "1.3.6.1.5.5.7.3.2", // clientAuth
  "1.3.6.1.5.5.7.3.4", // emailProtection
  "1.3.6.1.5.5.7.3.36", // documentSigning
  "1.3.6.1.4.1.311.10.3.12", // Microsoft's documentSigning
  "1.3.6.1.4.1.311.20.2.2", // Microsoft's smartcardLogon
  "1.2.840.113583.1.1.5", // Adobe's authenticDocuments
  "2.5.29.37.0", // any
];

const PEM_CERTIFICATE = /-----BEGIN CERTIFICATE-----[A-Za-z0-9+/=\s]+-----END CERTIFICATE-----/g;
const BASE64 = /^[A-Za-z0-9+/]+={0,2}$/;

const wrong = (detail, cause) => new VerificationError("INVALID_ARGUMENT", detail, { cause });

/** Bytes, or what Base64 says; at most `limit` of them. */
export function bytesOf(value, name, limit) {
  const bytes = typeof value === "string" ? bytesOfBase64(value, name) : viewOf(value, name);
  if (bytes.length > limit) throw new VerificationError("MALFORMED", `"${name}" has more than ${limit} bytes.`);
  return bytes;
}

function bytesOfBase64(text, name) {
  const packed = text.replace(/\s+/g, "");
  if (!BASE64.test(packed)) throw new VerificationError("MALFORMED", `"${name}" is not Base64.`);
  return new Uint8Array(Buffer.from(packed, "base64"));
}

function viewOf(value, name) {
  if (value instanceof ArrayBuffer) return new Uint8Array(value);
  if (ArrayBuffer.isView(value)) return new Uint8Array(value.buffer, value.byteOffset, value.byteLength);
  throw wrong(`"${name}" has to be bytes or Base64.`);
}

/** A text without lone surrogates, of which nobody knows the bytes. */
export function textOf(value, name) {
  if (typeof value !== "string" || /\p{Surrogate}/u.test(value)) throw wrong(`"${name}" has to be a text.`);
  return value;
}

const listOf = (value) => (value === undefined ? [] : Array.isArray(value) ? value : [value]);

/** Certificates as DER, Base64 or PEM, of which one text may have several. */
function certificatesOf(value, name) {
  return listOf(value).flatMap((each) => {
    const isPem = typeof each === "string" && each.includes("-----BEGIN");
    const ders = isPem
      ? (each.match(PEM_CERTIFICATE) ?? []).map((pem) => new X509Certificate(pem).raw)
      : [bytesOf(each, name, Infinity)];
    return ders.map((der) => new Certificate(der));
  });
}

function certificates(value, name) {
  try {
    return certificatesOf(value, name);
  } catch (cause) {
    throw wrong(`"${name}" has to be certificates, as DER or PEM.`, cause);
  }
}

/** The options that all functions have. */
export function settingsOf({
  roots,
  intermediates,
  timestampRoots,
  at,
  revocation = "require",
  crls,
  ocspResponses,
  fetch,
  extendedKeyUsages = SIGNING_PURPOSES,
}) {
  const now = new Date();
  const settings = {
    roots: certificates(roots, "roots"),
    intermediates: certificates(intermediates, "intermediates"),
    timestampRoots: certificates(timestampRoots, "timestampRoots"),
    now,
    at: at === undefined ? now : new Date(at),
    revocation,
    crls: listOf(crls).map((each) => bytesOf(each, "crls", Infinity)),
    ocspResponses: listOf(ocspResponses).map((each) => bytesOf(each, "ocspResponses", Infinity)),
    fetch,
    purposes: listOf(extendedKeyUsages),
  };
  if (settings.roots.length === 0) throw wrong('"roots" has to be the certificates that you trust.');
  if (!Number.isFinite(settings.at.getTime())) throw wrong('"at" has to be a time.');
  if (!POLICIES.includes(revocation)) throw wrong(`"revocation" has to be one of ${POLICIES.join(", ")}.`);
  if (fetch !== undefined && typeof fetch !== "function") throw wrong('"fetch" has to be a function.');
  return settings;
}
