// Certificates with anything right or wrong in them, and what says that they were revoked: written element by element, so that no
// library of the verifier's has a part in it.

import { createHash, generateKeyPairSync, sign } from "node:crypto";

import { der, oid } from "../../lib/kit.mjs";

export const sequence = (...content) => der(0x30, ...content);
export const set = (...content) => der(0x31, ...content);
export const octets = (bytes) => der(0x04, bytes);
export const context = (number, ...content) => der(0xa0 + number, ...content);
export const integer = (bytes) => der(0x02, Buffer.from(bytes));
export const nothing = der(0x05);

const bits = (bytes) => der(0x03, [0], bytes);
const boolean = (value) => der(0x01, [value ? 0xff : 0]);
const generalizedTime = (time) => der(0x18, Buffer.from(`${time.toISOString().replace(/[-:T]|\.\d+/g, "")}`));
const uri = (address) => der(0x86, Buffer.from(address));

const HASHES = {
  md5: "1.2.840.113549.2.5",
  sha1: "1.3.14.3.2.26",
  sha256: "2.16.840.1.101.3.4.2.1",
  sha384: "2.16.840.1.101.3.4.2.2",
  sha512: "2.16.840.1.101.3.4.2.3",
};
const WITH_RSA = { md5: 4, sha1: 5, sha256: 11, sha384: 12, sha512: 13 };

export const hashAlgorithm = (hash) => sequence(oid(HASHES[hash]), nothing);
export const withRsa = (hash) => sequence(oid(`1.2.840.113549.1.1.${WITH_RSA[hash]}`), nothing);
export const rsaEncryption = sequence(oid("1.2.840.113549.1.1.1"), nothing);

export const DAY = 86_400_000;
export const inDays = (days) => new Date(Math.floor(Date.now() / 1000) * 1000 + days * DAY);

const keys = new Map();

/** A private key, the same for the same label. */
export function keyOf(label, size = 2048) {
  if (!keys.has(label)) keys.set(label, generateKeyPairSync("rsa", { modulusLength: size }));
  return keys.get(label);
}

export const nameOf = (commonName) =>
  sequence(
    set(sequence(oid("2.5.4.10"), der(0x0c, Buffer.from("Quillmark Test")))),
    set(sequence(oid("2.5.4.3"), der(0x0c, Buffer.from(commonName)))),
  );

export const extension = (id, value, { critical = false } = {}) =>
  sequence(oid(id), ...(critical ? [boolean(true)] : []), octets(value));
export const constraints = (isAuthority, pathLength = null) =>
  extension(
    "2.5.29.19",
    sequence(...(isAuthority ? [boolean(true)] : []), ...(pathLength === null ? [] : [integer([pathLength])])),
    { critical: true },
  );
export const usage = (bitsOfUsage) => extension("2.5.29.15", der(0x03, [0, bitsOfUsage]), { critical: true });
export const purposes = (ids, options) => extension("2.5.29.37", sequence(...ids.map(oid)), options);

const SIGNS = usage(0xc0);
const ISSUES = usage(0x06);
const EMAIL = extension("2.5.29.17", sequence(der(0x81, Buffer.from("asha@example.com"))));
const PERSONS = purposes(["1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4"]);

/** What a person's certificate has, and what may be there in its place. */
export const personal = ({ basic = constraints(false), use = SIGNS, purpose = PERSONS, more = [] } = {}) =>
  [basic, use, purpose, EMAIL, ...more].filter((each) => each !== null);
export const authoritys = ({ basic = constraints(true), use = ISSUES, more = [] } = {}) =>
  [basic, use, ...more].filter((each) => each !== null);

/** Where a certificate says that its revocation can be asked for. */
export const addresses = ({ crl = [], ocsp = [] }) => [
  ...(crl.length > 0 ? [extension("2.5.29.31", sequence(...crl.map((each) => sequence(context(0, context(0, uri(each)))))))] : []),
  ...(ocsp.length > 0
    ? [extension("1.3.6.1.5.5.7.1.1", sequence(...ocsp.map((each) => sequence(oid("1.3.6.1.5.5.7.48.1"), uri(each)))))]
    : []),
];

let serials = 1;

/**
 * { der, pem, name, issuerName, serial, privateKey, publicKey }. `issuer`: one of these; null for one that signs itself. `hash` is what
 * it is signed with; `keyLabel` which key it has.
 */
export function certificate(
  subject,
  {
    issuer = null,
    from = inDays(-30),
    to = inDays(30),
    serial = [0x40, serials++],
    hash = "sha256",
    keyLabel = subject,
    keySize = 2048,
    version = 3,
    extensions = personal(),
    signedBy = null,
  } = {},
) {
  const { publicKey, privateKey } = keyOf(keyLabel, keySize);
  const name = nameOf(subject);
  const body = sequence(
    ...(version === 3 ? [context(0, integer([2]))] : []),
    integer(serial),
    withRsa(hash),
    issuer?.name ?? name,
    sequence(generalizedTime(from), generalizedTime(to)),
    name,
    publicKey.export({ type: "spki", format: "der" }),
    ...(version === 3 && extensions.length > 0 ? [context(3, sequence(...extensions))] : []),
  );
  const bytes = sequence(body, withRsa(hash), bits(sign(hash, body, signedBy ?? issuer?.privateKey ?? privateKey)));
  return { der: bytes, pem: pemOf(bytes), name, issuerName: issuer?.name ?? name, serial, privateKey, publicKey };
}

export const authority = (subject, { more = {}, ...options } = {}) =>
  certificate(subject, { extensions: authoritys(more), ...options });

export const pemOf = (bytes, what = "CERTIFICATE") =>
  `-----BEGIN ${what}-----\n${bytes.toString("base64").replace(/.{64}/g, "$&\n")}\n-----END ${what}-----\n`;

/** A revocation list (DER) of these [certificate, time] by `issuer`. */
export function crl(
  issuer,
  revoked = [],
  {
    from = inDays(-1),
    to = inDays(1),
    hash = "sha256",
    innerHash = hash,
    extensions = [],
    entryExtensions = [],
    signedBy = issuer,
  } = {},
) {
  const entries = revoked.map(([{ serial }, at]) =>
    sequence(integer(serial), generalizedTime(at), ...(entryExtensions.length > 0 ? [sequence(...entryExtensions)] : [])),
  );
  const body = sequence(
    integer([1]),
    withRsa(innerHash),
    issuer.name,
    generalizedTime(from),
    ...(to ? [generalizedTime(to)] : []),
    ...(entries.length > 0 ? [sequence(...entries)] : []),
    ...(extensions.length > 0 ? [context(0, sequence(...extensions))] : []),
  );
  return sequence(body, withRsa(hash), bits(sign(hash, body, signedBy.privateKey)));
}

const STATUSES = { good: () => der(0x80), revoked: (at) => context(1, generalizedTime(at)), unknown: () => der(0x82) };

/** An OCSP response (DER) about a certificate of `issuer`, by `responder`. */
export function ocsp(
  subject,
  issuer,
  {
    status = "good",
    at = inDays(-1),
    from = inDays(-1),
    to = inDays(1),
    hash = "sha256",
    idHash = "sha1",
    responder = issuer,
    certificates = [],
    outcome = 0,
    extensions = [],
    answerExtensions = [],
  } = {},
) {
  const digest = (bytes) => octets(createHash(idHash).update(bytes).digest());
  const id = sequence(
    hashAlgorithm(idHash),
    digest(issuer.name),
    digest(issuer.publicKey.export({ type: "pkcs1", format: "der" })),
    integer(subject.serial),
  );
  const more = (list) => (list.length > 0 ? [context(1, sequence(...list))] : []);
  const end = to ? [context(0, generalizedTime(to))] : [];
  const answer = sequence(id, STATUSES[status](at), generalizedTime(from), ...end, ...more(answerExtensions));
  const body = sequence(context(1, responder.name), generalizedTime(from), sequence(answer), ...more(extensions));
  const response = sequence(
    body,
    withRsa(hash),
    bits(sign(hash, body, responder.privateKey)),
    ...(certificates.length > 0 ? [context(0, sequence(...certificates.map((each) => each.der)))] : []),
  );
  return sequence(der(0x0a, [outcome]), context(0, sequence(oid("1.3.6.1.5.5.7.48.1.1"), octets(response))));
}
