// What all files of these tests share; each runs in a process of its own, and so has a world of its own.

import { World } from "../../lib/kit.mjs";
import { product } from "../../lib/quillmark.mjs";

export const world = World.forThisFile(product);

/** The body of a test with a host and its scripted token; what comes before `body` goes to world.hostWithFake. */
export function withFake(...args) {
  const body = args.pop();
  return async (t) => body(await world.hostWithFake(t, ...args), t);
}
