// Certificates that no authority would issue: names of any bytes, extensions of any size. Each signs itself.

import { generateKeyPairSync, sign } from "node:crypto";
import { writeFile } from "node:fs/promises";
import { join } from "node:path";

import { oid } from "../judges/asn1.mjs";

export const TAGS = { utf8: 0x0c, printable: 0x13, teletex: 0x14, universal: 0x1c, bmp: 0x1e };

const TYPES = { CN: "2.5.4.3", O: "2.5.4.10", emailAddress: "1.2.840.113549.1.9.1" };

/** An element of DER (X.690): tag, length, content. */
export function der(tag, ...content) {
  const bytes = Buffer.concat(content.map((it) => Buffer.from(it)));
  const octets = [];
  for (let rest = bytes.length; rest > 0; rest = Math.floor(rest / 256)) octets.unshift(rest % 256);
  const length = bytes.length < 0x80 ? [bytes.length] : [0x80 + octets.length, ...octets];
  return Buffer.concat([Buffer.from([tag, ...length]), bytes]);
}

const sequence = (...content) => der(0x30, ...content);
const sha256WithRsa = sequence(oid("1.2.840.113549.1.1.11"), der(0x05));

/** A Name: of each attribute its text, or { tag, bytes } for other strings than UTF-8. */
function name(attributes) {
  return sequence(...Object.entries(attributes).map(([type, value]) => {
    const { tag, bytes } = value.bytes ? value : { tag: TAGS.utf8, bytes: Buffer.from(value) };
    return der(0x31, sequence(oid(TYPES[type]), der(tag, bytes)));
  }));
}

/**
 * Makes a certificate with its key in `folder`: the files { der, key } and the DER bytes { bytes }. `extensions` is a list
 * of [object identifier, bytes of the value]; a key usage for signing comes with it. Version 1 has no extensions at all.
 */
export async function oddCertificate(folder, label, { subject, extensions = [], version = 3 }) {
  const { publicKey, privateKey } = generateKeyPairSync("rsa", { modulusLength: 2048 });
  const keyUsage = ["2.5.29.15", der(0x03, [6, 0xc0])]; // digitalSignature, nonRepudiation
  const all = [keyUsage, ...extensions].map(([type, value]) => sequence(oid(type), der(0x04, value)));
  const onlyIn3 = (element) => (version === 3 ? [element] : []);
  const body = sequence(
    ...onlyIn3(der(0xa0, der(0x02, [2]))), der(0x02, [1]), sha256WithRsa, name({ CN: "Odd CA" }),
    sequence(der(0x17, "221115000000Z"), der(0x17, "491231235959Z")), name(subject),
    publicKey.export({ type: "spki", format: "der" }), ...onlyIn3(der(0xa3, sequence(...all))));
  const bytes = sequence(body, sha256WithRsa, der(0x03, [0], sign("sha256", body, privateKey)));
  const certificate = { der: join(folder, `${label}.der`), key: join(folder, `${label}.key`), bytes };
  await writeFile(certificate.der, bytes);
  await writeFile(certificate.key, privateKey.export({ type: "pkcs8", format: "pem" }));
  return certificate;
}
