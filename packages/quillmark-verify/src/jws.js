/** A compact JWS (RFC 7515) whose signing input `signAuthToken` has signed, with the signer's certificates in its header. */

import { createHash } from "node:crypto";

import { compactVerify, decodeProtectedHeader } from "jose";

import { checkKey } from "./algorithms.js";
import { Certificate, MAX_CERTIFICATE_BYTES, MAX_CERTIFICATES } from "./certificate.js";
import { guarded, translated, VerificationError } from "./error.js";
import { bytesOf, settingsOf, textOf } from "./settings.js";
import { verdictOn } from "./verdict.js";

const HASHES = new Map([
  ["RS256", "SHA-256"],
  ["RS384", "SHA-384"],
  ["RS512", "SHA-512"],
]);
/** The library would pass over blanks. */
const COMPACT = /^[\w-]+\.[\w-]*\.[\w-]*$/;

const MAX_LENGTH = 1024 * 1024;

const malformed = (detail) => new VerificationError("MALFORMED", detail);

/** Verifies a JWS; see index.d.ts. */
export const verifyJws = guarded(async ({ jws, ...options }) => {
  const settings = settingsOf(options);
  if (textOf(jws, "jws").length > MAX_LENGTH) throw malformed(`"jws" has more than ${MAX_LENGTH} characters.`);
  if (!COMPACT.test(jws)) throw malformed("It is no compact JWS.");
  const header = translated("MALFORMED", "the header", () => decodeProtectedHeader(jws));
  if (!HASHES.has(header.alg)) throw new VerificationError("WEAK_ALGORITHM", `the algorithm ${String(header.alg).slice(0, 40)}`);
  if (header.crit !== undefined) throw malformed("Its header has a critical member.");
  const certificates = certificatesIn(header);
  const [signer] = certificates;
  checkKey(signer.publicKey);
  const { payload } = await compactVerify(jws, signer.publicKey, { algorithms: [header.alg] }).catch((cause) => {
    throw new VerificationError(cause.code === "ERR_JWS_SIGNATURE_VERIFICATION_FAILED" ? "SIGNATURE_INVALID" : "MALFORMED", "", {
      cause,
    });
  });
  return { ...(await verdictOn(signer, settings, certificates.slice(1))), payload, header, hashAlgorithm: HASHES.get(header.alg) };
});

/** RFC 7515, section 4.1.6: the signer's is the first. */
function certificatesIn({ x5c, "x5t#S256": thumbprint }) {
  const isList =
    Array.isArray(x5c) && x5c.length > 0 && x5c.length <= MAX_CERTIFICATES && x5c.every((each) => typeof each === "string");
  if (!isList) throw malformed("Its header has no certificates.");
  const certificates = x5c.map((each) => new Certificate(bytesOf(each, "x5c", MAX_CERTIFICATE_BYTES)));
  const own = createHash("sha256").update(certificates[0].der).digest("base64url");
  if (thumbprint !== undefined && thumbprint !== own)
    throw new VerificationError("SIGNATURE_INVALID", "It is by another certificate.");
  return certificates;
}
