// What the kit finds on this computer: Quillmark as its Debian package installs it, and the other packages that it needs.

import { access, constants, readFile, symlink } from "node:fs/promises";
import { join } from "node:path";

const PROGRAMS = "/usr/lib/quillmark";
const DATA = "/usr/share/quillmark";

/** The commands that the kit runs, and the Debian packages that bring them. */
const COMMANDS = {
  "softhsm2-util": "softhsm2", "pkcs11-tool": "opensc", openssl: "openssl", xdotool: "xdotool", xprop: "x11-utils",
  import: "imagemagick", setpriv: "util-linux",
};
const OF_DISPLAY = { Xvfb: "xvfb", openbox: "openbox" };
const OF_BROWSER = { chromium: { chromium: "chromium" }, firefox: { "firefox-esr": "firefox-esr" } };

/**
 * What is tested: `product`, or what the Debian package has installed. Throws one Error that says what has to be installed, if
 * anything has. `display`: whether the kit starts a display of its own.
 */
export async function lookAtComputer({ browser, display, product }) {
  const commands = { ...COMMANDS, ...(display ? OF_DISPLAY : {}), ...OF_BROWSER[browser] };
  const missing = [];
  for (const command of Object.keys(commands)) if (!(await isCommand(command))) missing.push(command);
  const found = product ?? (await installedProduct());
  if (missing.length === 0 && found) return found;

  const words = [found ? "" : `Quillmark, in ${PROGRAMS}`, ...missing].filter(Boolean).join(", ");
  const packages = [...missing.map((command) => commands[command]), ...(found ? [] : ["./quillmark_*.deb"])];
  throw new Error(`The test kit misses on this computer: ${words}. Install it with\n\n  sudo apt install ${packages.join(" ")}\n`);
}

async function isCommand(name) {
  for (const folder of process.env.PATH.split(":")) {
    if (await access(join(folder, name), constants.X_OK).then(() => true, () => false)) return true;
  }
  return false;
}

/** Undefined when the package is not installed. Its programs are registered with the browsers for all users. */
async function installedProduct() {
  const registration = await readFile(join(PROGRAMS, "registration.json"), "utf8").then(JSON.parse, () => undefined);
  if (!registration) return undefined;
  const { hosts: [{ name }], chromiumExtensions: [chromium], firefoxExtensions: [firefox] } = registration;
  const make = async (folder) => {
    for (const each of ["chromium", "firefox"]) await symlink(join(DATA, "extension", each), join(folder, each));
    await symlink(join(DATA, "example"), join(folder, "example"));
  };
  return { name, program: join(PROGRAMS, "QMChromeExtHost"), extension: { make, ids: { chromium, firefox } } };
}
