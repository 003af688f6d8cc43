// The mutants of tools/mutate: one place of the code each, and nothing else.

import assert from "node:assert/strict";
import { test } from "node:test";

import { mutantsOf } from "../mutation/mutants.mjs";

const changesOf = (file, text) => mutantsOf(file, text).map(({ after }) => after).sort();

test("Conditions, calculations, numbers, calls and answers become mutants", () => {
  assert.deepEqual(changesOf("a.js", "if (a === 1 && !b) c += d + 2;\n  e.f(g);\n  return h;\n"), [
    ";", "if (a !== 1 && !b) c += d + 2;", "if (a === 1 && !b) c += d + 3;", "if (a === 1 && !b) c += d - 2;",
    "if (a === 1 && b) c += d + 2;", "if (a === 1 || !b) c += d + 2;", "if (a === 2 && !b) c += d + 2;", "return null;",
  ].sort());
  assert.deepEqual(changesOf("a.py", "if not a and b in c:\n    d(e)\n"), [
    "if a and b in c:", "if not a and b not in c:", "if not a or b in c:", "pass",
  ].sort());
});

test("Comments, texts and lines of the preprocessor are left alone", () => {
  assert.deepEqual(mutantsOf("a.cpp", '#define A 1 == 2\n// a == 1\n/* a\n == 2 */ f("1 == 2", \'1\', R"(1 == 2)");\n'), []);
  assert.deepEqual(mutantsOf("a.js", "// a === 1\nconst b = `1 === 2`;\nconst c = /1{2} === [/]2/;\nconst d = '1' || \"2 === 1\";\n").map(({ after }) => after),
    ["const d = '1' && \"2 === 1\";"]);
  assert.deepEqual(mutantsOf("a", '"""1 == 2\nand 3"""\n# 1 == 2\na = "1 == 2"\n'), []);
});

test("A mutant says the line before and after, and has the same order again", () => {
  const [mutant] = mutantsOf("a.js", "\n  const a = b < c;\n");
  const { order, ...rest } = mutant;
  assert.deepEqual(rest, { file: "a.js", line: 2, before: "const a = b < c;", after: "const a = b <= c;", text: "\n  const a = b <= c;\n" });
  assert.equal(mutantsOf("a.js", "\n\n  const a = b < c;\n")[0].order, order);
});
