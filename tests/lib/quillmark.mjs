// What this project's tests tell the harness of the project: where the host under test lies, and what goes with it. No
// other file of this folder knows a path of it.

import { readFile } from "node:fs/promises";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

import { make } from "../../extension/make.mjs";

export const root = resolve(dirname(fileURLToPath(import.meta.url)), "../..");

/** The folder that the host can be run in. QM_BIN names another than that of the release preset. */
export const bin = resolve(process.env.QM_BIN ?? join(root, "build/release/bin"));

/** The folder of the build, and what else it holds: the tests' own libraries, and pictures that tests leave there. */
export const build = dirname(bin);
export const fakes = join(build, "fakes");
export const screenshots = join(build, "screenshots");

const registrations = JSON.parse(await readFile(join(root, "packaging/registration.json"), "utf8"));
/** Of the host that signs: { name, description, program }, and { chromiumExtensions, firefoxExtensions }. */
export const registration = { ...registrations, ...registrations.hosts[0] };

/** The host's files, how it is installed and registered, the extension, and the scripted PKCS#11 module, which may lack an entry point. */
export const product = {
  name: registration.name,
  folder: bin,
  install: join(root, "install"),
  program: join(bin, "QMChromeExtHost"),
  driver: join(bin, "QMTokenDriver.so"),
  logo: join(bin, "QMLogo.png"),
  screenshots,
  extension: { make, ids: { chromium: registration.chromiumExtensions[0], firefox: registration.firefoxExtensions[0] } },
  fakeModule: (without = null) => join(fakes, without === null ? "fake-pkcs11.so" : `fake-pkcs11-without-${without}.so`),
};
