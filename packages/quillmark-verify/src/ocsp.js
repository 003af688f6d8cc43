/** OCSP (RFC 6960). */

import { createHash } from "node:crypto";

import { Integer, Null, ObjectIdentifier, OctetString, Sequence } from "asn1js";
import { BasicOCSPResponse, OCSPResponse } from "pkijs";

import { checkKey, isSigned, signatureOf } from "./algorithms.js";
import { Certificate } from "./certificate.js";
import { octetsOf, parsed, sameBytes, sameNumber } from "./der.js";
import { isCurrent } from "./revocation-time.js";

const BASIC_RESPONSE = "1.3.6.1.5.5.7.48.1.1";
const OCSP_SIGNING = "1.3.6.1.5.5.7.3.9";
const SUCCESSFUL = 0;
const MAX_CERTIFICATES = 10;

// Names of certificates, not promises about them: SHA-1, which all responders know, does.
const ID_HASHES = new Map([
  ["1.3.14.3.2.26", "sha1"],
  ["2.16.840.1.101.3.4.2.1", "sha256"],
]);
const SHA1 = "1.3.14.3.2.26";

// 4.2.1: the tags of CertStatus.
const STATUSES = ["good", "revoked"];

const digest = (hash, bytes) => createHash(hash).update(bytes).digest();

/** "good" or "revoked" of a certificate by this response (DER); null when it does not say. */
export function statusInOcsp(der, certificate, issuer, time) {
  const { responseStatus, responseBytes } = parsed(der, OCSPResponse);
  if (responseStatus.valueBlock.valueDec !== SUCCESSFUL || responseBytes?.responseType !== BASIC_RESPONSE) return null;
  const response = parsed(octetsOf(responseBytes.response), BasicOCSPResponse);
  const { tbsResponseData: data, signatureAlgorithm, signature, certs = [] } = response;
  const algorithm = signatureOf(signatureAlgorithm);
  const responders = respondersIn(certs, issuer, time);
  if (!responders.some(({ publicKey }) => isSigned(algorithm, data.tbsView, publicKey, octetsOf(signature)))) return null;
  if (hasCritical(data.responseExtensions)) return null;
  const answers = data.responses.filter(({ certID }) => isOf(certID, certificate, issuer));
  const current = answers.filter((answer) => isCurrent(answer, certificate, time) && !hasCritical(answer.singleExtensions));
  const statuses = current.map((answer) => statusOf(answer, time));
  return statuses.includes("revoked") ? "revoked" : (statuses[0] ?? null);
}

/** Who may answer for the issuer (4.2.2.2): itself, and those whom it has certified for that. */
function respondersIn(certs, issuer, { now }) {
  const certified = certs
    .slice(0, MAX_CERTIFICATES)
    .map((each) => new Certificate(each.toSchema().toBER()))
    .filter((each) => {
      if (!each.isNamedAfter(issuer) || !each.isSignedBy(issuer) || !each.purposes()?.includes(OCSP_SIGNING)) return false;
      each.check(now);
      return each.mayDo("digitalSignature");
    });
  checkKey(issuer.publicKey);
  return [issuer, ...certified];
}

const hasCritical = (extensions = []) => extensions.some(({ critical }) => critical);

function isOf({ hashAlgorithm, issuerNameHash, issuerKeyHash, serialNumber }, certificate, issuer) {
  const hash = ID_HASHES.get(hashAlgorithm.algorithmId);
  return (
    hash !== undefined &&
    sameNumber(octetsOf(serialNumber), certificate.serial) &&
    sameBytes(octetsOf(issuerNameHash), digest(hash, issuer.subject)) &&
    sameBytes(octetsOf(issuerKeyHash), digest(hash, issuer.keyBits))
  );
}

function statusOf({ certStatus }, { at }) {
  const status = STATUSES[certStatus.idBlock.tagNumber] ?? null;
  if (status !== "revoked") return status;
  const [revokedAt] = certStatus.valueBlock.value;
  return revokedAt.toDate() > at ? "good" : "revoked";
}

/** A request for one certificate's status (4.1.1), DER as an ArrayBuffer. */
export function ocspRequest(certificate, issuer) {
  const sequence = (...value) => new Sequence({ value });
  const octets = (bytes) => new OctetString({ valueHex: Uint8Array.from(bytes).buffer });
  const id = sequence(
    sequence(new ObjectIdentifier({ value: SHA1 }), new Null()),
    octets(digest("sha1", issuer.subject)),
    octets(digest("sha1", issuer.keyBits)),
    new Integer({ valueHex: Uint8Array.from(certificate.serial).buffer }),
  );
  return sequence(sequence(sequence(sequence(id)))).toBER();
}
