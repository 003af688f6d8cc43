// The window's own parts, tested from inside on a display.

import assert from "node:assert/strict";
import { dirname, join } from "node:path";
import { test } from "node:test";

import { bin, product } from "../lib/quillmark.mjs";
import { runUnchecked } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

test("The window's tests pass", async () => {
  const env = { ...process.env, ...world.desktop.env };
  const { code, stdout, stderr } = await runUnchecked(join(dirname(bin), "tests", "window_tests"), [], { env });
  assert.equal(code, 0, `${stdout}${stderr}`);
  assert.match(stdout.toString(), /\[  PASSED  \] 8 tests\./);
});
