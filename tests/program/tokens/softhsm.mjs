// SoftHSM 2: Debian's softhsm2 and opensc.

import { BINARY_ID } from "../../lib/world.mjs";
import { SoftToken } from "../../lib/token/soft-token.mjs";

/** A token with one certificate of the test's world. */
export async function softhsm(folder, world) {
  const token = await SoftToken.create(folder);
  const certificate = await world.certificate();
  await token.addPair(certificate, BINARY_ID);
  return Object.assign(token, { certificate });
}
