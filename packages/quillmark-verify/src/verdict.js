/** What is said of a signature that holds: by whom, by which chain, for which time. */

import { chainOf } from "./chain.js";
import { revocationOf } from "./revocation.js";

/** The verdict on the signer's certificate at the settings' time. `extra`: certificates that came with the signature. */
export async function verdictOn(certificate, settings, extra = []) {
  const { roots, intermediates, at, purposes } = settings;
  const pool = [...extra, ...intermediates];
  const chain = chainOf(certificate, { roots, pool, at, checkEnd: (signer) => signer.checkSigner(purposes) });
  const revocation = await revocationOf(chain, settings);
  return { signer: certificate.describe(), chain: chain.map((each) => each.describe()), time: at, revocation };
}
