// A folder of a test's own, and files in it.

import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

/**
 * A new folder, and `file(name, content)`, which writes a file there and gives its path. It goes with `scope`: a test's context,
 * or { after } of node:test for a file of tests.
 */
export async function scratch(scope) {
  const folder = await mkdtemp(join(tmpdir(), "quillmark-packages-"));
  scope.after(() => rm(folder, { recursive: true }));
  const file = async (name, content) => {
    await writeFile(join(folder, name), content);
    return join(folder, name);
  };
  return { folder, file };
}
