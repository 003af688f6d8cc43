/** The way from a certificate to a root that the caller trusts. */

import { VerificationError } from "./error.js";

/** Signer, three or four authorities, root. */
const MAX_LENGTH = 8;

/** Each try takes a signature's verification. What signs each other in circles ends here. */
const MAX_TRIES = 100;

/**
 * [signer, ..., root]: the shortest chain in which each certificate is what it has to be there, at that time. `pool`: who may
 * stand between. `checkEnd(signer)` throws unless the signer's certificate is one for what was signed.
 */
export function chainOf(signer, { roots, pool, at, checkEnd }) {
  const chains = chainsFrom(signer, roots, pool).sort((one, other) => one.length - other.length);
  const failures = [];
  for (const chain of chains) {
    try {
      checkEnd(signer);
      checkChain(chain, at);
      return chain;
    } catch (error) {
      failures.push(error);
    }
  }
  throw failures[0] ?? new VerificationError("CERTIFICATE_UNTRUSTED");
}

/** All chains in which each has signed the one before it, as far as the tries reach. */
function chainsFrom(signer, roots, pool) {
  const between = pool.filter((each) => !roots.some((root) => root.isSame(each)));
  const chains = [];
  let tries = 0;
  const extend = (chain) => {
    for (const issuer of [...roots, ...between]) {
      const last = chain.at(-1);
      if (!last.isNamedAfter(issuer) || chain.some((each) => each.isSame(issuer))) continue;
      if (++tries > MAX_TRIES || !last.isSignedBy(issuer)) continue;
      if (roots.includes(issuer)) chains.push([...chain, issuer]);
      else if (chain.length < MAX_LENGTH - 1) extend([...chain, issuer]);
    }
  };
  extend([signer]);
  return chains;
}

function checkChain(chain, at) {
  for (const [i, certificate] of chain.entries()) {
    certificate.check(at, { isRoot: i === chain.length - 1 });
    if (i > 0) certificate.checkAuthority(i - 1);
  }
}
