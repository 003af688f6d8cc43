// To be imported before pdf.js, which asks for parts of Node.js in a way that version 18 does not know.

import { createRequire } from "node:module";

process.getBuiltinModule ??= createRequire(import.meta.url);
