/** Whether the certificates of a chain were revoked, by what the caller has and by what his `fetch` brings. */

import { statusInCrl } from "./crl.js";
import { VerificationError } from "./error.js";
import { ocspRequest, statusInOcsp } from "./ocsp.js";

/** The largest lists of public authorities have some megabytes. */
const MAX_BYTES = 16 * 1024 * 1024;
const MAX_TIME_MS = 10_000;

/** Of each kind. Authorities name one or two. */
const MAX_ADDRESSES = 2;

/** "good", "unknown" or "unchecked" of all certificates of the chain but the root; throws as the policy says. */
export async function revocationOf(chain, settings) {
  if (settings.revocation === "none") return "unchecked";
  let answer = "good";
  // From the root downward: an address is asked only when it stands in a certificate of an authority that holds.
  for (let i = chain.length - 2; i >= 0; i--) {
    const status = await statusOf(chain[i], chain[i + 1], settings);
    const name = JSON.stringify(chain[i].describe().name);
    if (status === "revoked") throw new VerificationError("CERTIFICATE_REVOKED", `that of ${name}`);
    if (status === null && settings.revocation === "require") throw new VerificationError("REVOCATION_UNKNOWN", `that of ${name}`);
    if (status === null) answer = "unknown";
  }
  return answer;
}

async function statusOf(certificate, issuer, settings) {
  const read = (statusIn) => (der) => {
    try {
      return statusIn(der, certificate, issuer, settings);
    } catch {
      return null; // what cannot be read, or is weakly signed, says nothing
    }
  };
  const given = [...settings.ocspResponses.map(read(statusInOcsp)), ...settings.crls.map(read(statusInCrl))];
  const known = given.includes("revoked") ? "revoked" : given.find((status) => status !== null);
  if (known || !settings.fetch) return known ?? null;
  for (const ask of questions(certificate, issuer)) {
    const der = await fetched(settings.fetch, ask).catch(() => null);
    const status = der && read(ask.statusIn)(der);
    if (status) return status;
  }
  return null;
}

function questions(certificate, issuer) {
  const { ocsp, crl } = certificate.addresses;
  const isHttp = (address) => /^http:\/\//i.test(address);
  const headers = { "content-type": "application/ocsp-request" };
  return [
    ...ocsp
      .filter(isHttp)
      .slice(0, MAX_ADDRESSES)
      .map((url) => ({ url, statusIn: statusInOcsp, init: { method: "POST", headers, body: ocspRequest(certificate, issuer) } })),
    ...crl
      .filter(isHttp)
      .slice(0, MAX_ADDRESSES)
      .map((url) => ({ url, statusIn: statusInCrl, init: { method: "GET" } })),
  ];
}

/** The body of an answer, within the limits of size and time. */
async function fetched(fetch, { url, init }) {
  const limit = new AbortController();
  let timer;
  const late = new Promise((_, reject) => {
    timer = setTimeout(() => {
      limit.abort();
      reject(new Error(`no answer within ${MAX_TIME_MS} ms`));
    }, MAX_TIME_MS);
  });
  try {
    return await Promise.race([late, bodyOf(fetch(url, { ...init, redirect: "error", signal: limit.signal }))]);
  } finally {
    clearTimeout(timer);
    limit.abort();
  }
}

async function bodyOf(asked) {
  const response = await asked;
  if (!response.ok) throw new Error(`status ${response.status}`);
  const chunks = [];
  let length = 0;
  for await (const chunk of response.body) {
    length += chunk.length;
    if (length > MAX_BYTES) throw new Error(`more than ${MAX_BYTES} bytes`);
    chunks.push(chunk);
  }
  return new Uint8Array(Buffer.concat(chunks));
}
