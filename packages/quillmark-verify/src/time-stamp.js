/** Time stamps (RFC 3161) of a signature, which stand in its unsigned attributes. */

import { createHash } from "node:crypto";

import { TSTInfo } from "pkijs";

import { hashOf } from "./algorithms.js";
import { chainOf } from "./chain.js";
import { octetsOf, parsed, sameBytes } from "./der.js";
import { VerificationError } from "./error.js";
import { revocationOf } from "./revocation.js";
import { MAX_SKEW_MS } from "./revocation-time.js";
import { SignedData } from "./signed-data.js";

const TST_INFO = "1.2.840.113549.1.9.16.1.4";
const TIME_STAMP_TOKEN = "1.2.840.113549.1.9.16.2.14";
const TIME_STAMPING = "1.3.6.1.5.5.7.3.8";

/**
 * { time, isTrusted, authority, chain } of the time stamp of a SignedData; null when it has none. `isTrusted`: a chain leads to
 * one of `timestampRoots`. Where these are given and none does, it throws.
 */
export async function timeStampOf(signed, settings) {
  const [token, ...more] = signed.unsignedValues(TIME_STAMP_TOKEN);
  if (!token) return null;
  try {
    if (more.length > 0) throw new VerificationError("MALFORMED", "It has more than one time stamp.");
    return await read(token, signed.signature, settings);
  } catch (cause) {
    if (["CERTIFICATE_REVOKED", "REVOCATION_UNKNOWN"].includes(cause.code)) throw cause;
    throw new VerificationError("TIMESTAMP_INVALID", cause.message, { cause });
  }
}

async function read(token, stamped, settings) {
  const data = new SignedData(token, { contentType: TST_INFO });
  if (data.content === null) throw new VerificationError("MALFORMED", "It has no content.");
  const info = parsed(data.content, TSTInfo);
  const imprint = createHash(hashOf(info.messageImprint.hashAlgorithm)).update(stamped).digest();
  if (!sameBytes(octetsOf(info.messageImprint.hashedMessage), imprint)) throw new VerificationError("CONTENT_MISMATCH");
  if (info.extensions?.some(({ critical }) => critical)) throw new VerificationError("MALFORMED", "It has a critical extension.");
  data.checkOverDigest(data.digestOf(data.content));
  const authority = data.certificate;
  const time = info.genTime;
  const { timestampRoots: roots, intermediates, at } = settings;
  if (roots.length === 0) return { time, isTrusted: false, authority, chain: [] };
  const pool = [...data.certificates, ...intermediates];
  const chain = chainOf(authority, { roots, pool, at, checkEnd: checkAuthority });
  if (!(time >= authority.notBefore && time.getTime() <= at.getTime() + MAX_SKEW_MS)) {
    throw new VerificationError("MALFORMED", "It is of a time that its authority cannot know.");
  }
  await revocationOf(chain, settings);
  return { time, isTrusted: true, authority, chain };
}

/** RFC 3161, section 2.3. */
function checkAuthority(certificate) {
  if (!certificate.isOnlyFor(TIME_STAMPING)) throw new VerificationError("CERTIFICATE_UNSUITABLE", "It is not for time stamps.");
}
