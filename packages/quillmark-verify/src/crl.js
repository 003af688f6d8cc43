/** Revocation lists (RFC 5280, section 5). */

import { CertificateRevocationList } from "pkijs";

import { checkKey, isSigned, signatureOf } from "./algorithms.js";
import { octetsOf, parsed, rawOf, sameBytes, sameNumber } from "./der.js";
import { isCurrent } from "./revocation-time.js";

const ISSUING_DISTRIBUTION_POINT = "2.5.29.28";

/** "good" or "revoked" of a certificate by this list (DER); null when the list does not say. */
export function statusInCrl(der, certificate, issuer, time) {
  const crl = parsed(der, CertificateRevocationList);
  if (!sameBytes(rawOf(crl.issuer), certificate.issuer) || !issuer.mayDo("cRLSign")) return null;
  if (crl.signature.algorithmId !== crl.signatureAlgorithm.algorithmId) return null;
  checkKey(issuer.publicKey);
  if (!isSigned(signatureOf(crl.signatureAlgorithm), crl.tbsView, issuer.publicKey, octetsOf(crl.signatureValue))) return null;
  const [thisUpdate, nextUpdate] = [crl.thisUpdate.value, crl.nextUpdate?.value];
  if (!isCurrent({ thisUpdate, nextUpdate }, certificate, time) || !isAbout(crl, certificate)) return null;
  const entries = crl.revokedCertificates ?? [];
  // One of another issuer's, in an indirect list, has a critical extension.
  if (entries.some(({ crlEntryExtensions }) => crlEntryExtensions?.extensions.some(({ critical }) => critical))) return null;
  const entry = entries.find(({ userCertificate }) => sameNumber(octetsOf(userCertificate), certificate.serial));
  return !entry || entry.revocationDate.value > time.at ? "good" : "revoked";
}

/** Whether the list is one of all certificates of the kind, for all reasons. A delta has another critical extension. */
function isAbout({ crlExtensions }, certificate) {
  const critical = crlExtensions?.extensions.filter((extension) => extension.critical) ?? [];
  return critical.every(({ extnID, parsedValue: point }) => {
    if (extnID !== ISSUING_DISTRIBUTION_POINT || !point || point.parsingError) return false;
    if (point.indirectCRL || point.onlySomeReasons !== undefined || point.onlyContainsAttributeCerts) return false;
    if (point.onlyContainsUserCerts && certificate.isAuthority) return false;
    if (point.onlyContainsCACerts && !certificate.isAuthority) return false;
    if (point.distributionPoint === undefined) return true;
    return Array.isArray(point.distributionPoint) && point.distributionPoint.some(({ value }) => certificate.addresses.crl.includes(value));
  });
}
