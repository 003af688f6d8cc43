/** Revocation lists (RFC 5280, section 5). */

import { AlgorithmIdentifier, Extensions, Time } from "pkijs";

import { checkKey, isSigned, signatureOf } from "./algorithms.js";
import { childrenOf, elementOf, octetsOf, parsed, sameBytes, sameNumber } from "./der.js";
import { isCurrent } from "./revocation-time.js";

const ISSUING_DISTRIBUTION_POINT = "2.5.29.28";

const BOOLEAN = 0x01;
const INTEGER = 0x02;
const SEQUENCE = 0x30;
const TIMES = [0x17, 0x18];
const EXTENSIONS = 0xa0;

/** "good" or "revoked" of a certificate by this list (DER); null when the list does not say. */
export function statusInCrl(der, certificate, issuer, time) {
  const crl = read(der);
  if (!sameBytes(crl.issuer, certificate.issuer) || !issuer.mayDo("cRLSign")) return null;
  if (!sameBytes(crl.innerAlgorithm, crl.algorithm)) return null;
  checkKey(issuer.publicKey);
  if (!isSigned(signatureOf(parsed(crl.algorithm, AlgorithmIdentifier)), crl.body, issuer.publicKey, crl.signature)) return null;
  if (!isCurrent(crl, certificate, time) || !isAbout(crl, certificate)) return null;
  // An entry of another issuer's, in an indirect list, has a critical extension.
  if (crl.entries.some(hasCritical)) return null;
  const entry = crl.entries.find(([serial]) => sameNumber(serial.content, certificate.serial));
  return !entry || timeOf(entry[1]) > time.at ? "good" : "revoked";
}

/** The list's fields (5.1). A list may have 100,000 entries, of which pkijs would make objects for minutes. */
function read(der) {
  const [body, algorithm, signature] = childrenOf(elementOf(der));
  const fields = childrenOf(body.bytes);
  const next = (...tags) => (tags.length === 0 || tags.includes(fields[0]?.tag) ? fields.shift() : undefined);
  next(INTEGER); // the version
  const [innerAlgorithm, issuer, thisUpdate] = [next(), next(), next(...TIMES)];
  const [nextUpdate, entries, extensions] = [next(...TIMES), next(SEQUENCE), next(EXTENSIONS)];
  if (fields.length > 0) throw new Error("The list has more fields than a list has.");
  return {
    body: body.bytes,
    algorithm: algorithm.bytes,
    signature: octetsOf(parsed(signature.bytes)),
    innerAlgorithm: innerAlgorithm.bytes,
    issuer: issuer.bytes,
    thisUpdate: timeOf(thisUpdate),
    nextUpdate: nextUpdate && timeOf(nextUpdate),
    entries: entries ? childrenOf(entries.bytes).map(({ bytes }) => childrenOf(bytes)) : [],
    extensions: extensions ? parsed(extensions.content, Extensions).extensions : [],
  };
}

const timeOf = ({ bytes }) => parsed(bytes, Time).value;

/** Whether an entry has a critical extension: one with a BOOLEAN behind its name. */
const hasCritical = ([, , extensions]) =>
  extensions !== undefined && childrenOf(extensions.bytes).some(({ bytes }) => childrenOf(bytes)[1]?.tag === BOOLEAN);

/** Whether the list is one of all certificates of the kind, for all reasons. A delta has another critical extension. */
function isAbout({ extensions }, certificate) {
  return extensions
    .filter(({ critical }) => critical)
    .every(({ extnID, parsedValue: point }) => {
      if (extnID !== ISSUING_DISTRIBUTION_POINT || !point || point.parsingError) return false;
      if (point.indirectCRL || point.onlySomeReasons !== undefined || point.onlyContainsAttributeCerts) return false;
      if (point.onlyContainsUserCerts && certificate.isAuthority) return false;
      if (point.onlyContainsCACerts && !certificate.isAuthority) return false;
      if (point.distributionPoint === undefined) return true;
      return (
        Array.isArray(point.distributionPoint) &&
        point.distributionPoint.some(({ value }) => certificate.addresses.crl.includes(value))
      );
    });
}
