// Where the build under test lies.

import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const root = resolve(dirname(fileURLToPath(import.meta.url)), "../../..");

/** The folder that the host can be run in. QM_BIN names another than that of the release preset. */
export const bin = resolve(process.env.QM_BIN ?? join(root, "build/release/bin"));

/** The folder with the tests' own PKCS#11 modules. */
export const fakes = join(dirname(bin), "fakes");
