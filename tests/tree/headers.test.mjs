// A header stands alone: whoever includes it needs nothing before it.

import assert from "node:assert/strict";
import { dirname } from "node:path";
import { test } from "node:test";

import { compileCommands, filesOfTree, forEachAtOnce, root, run } from "./lib/tree.mjs";

const OWN = ["ck", "QMChromeExtHost", "QMTokenDriver", "quillmark-tokens"];

test("each header compiles alone and may be included twice", async () => {
  const commands = compileCommands();
  const headers = filesOfTree("*.h").filter((header) => commandIn(commands, dirname(header)));
  for (const folder of OWN) {
    assert.ok(headers.some((header) => dirname(header) === folder), `no compile command is known for ${folder}/`);
  }
  const failures = await forEachAtOnce(headers, async (header) => {
    const { words, directory } = commandIn(commands, dirname(header));
    const [compiler, ...flags] = words.slice(0, words.indexOf("-o"));
    const { status, output } = await run(compiler, [...flags, "-Werror", "-fsyntax-only", "-include", `${root}/${header}`,
      "-include", `${root}/${header}`, "-x", "c++", "/dev/null"], { cwd: directory });
    return status === 0 ? undefined : `${header}:\n${output}`;
  });
  if (failures.length > 0) assert.fail(failures.join("\n"));
});

/** How the files of a folder are compiled; undefined where this build compiles none of them. */
function commandIn(commands, folder) {
  return commands.find(({ file }) => dirname(file) === folder && file.endsWith(".cpp"));
}
