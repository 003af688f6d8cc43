// The soft token of NSS, in which Firefox and Thunderbird keep certificates: Debian's libnss3 and libnss3-tools.

import { writeFile } from "node:fs/promises";
import { join } from "node:path";

import { run } from "../process.mjs";
import { privateToken } from "./private-token.mjs";

const PIN = "1234";

/** A database with one certificate of the test's world. NSS gives it its CKA_ID: a hash of the public key. */
export async function nss(folder, world) {
  const certificate = await world.certificate();
  const database = `sql:${folder}`;
  const pinFile = join(folder, "pin");
  const pkcs12 = join(folder, "user.p12");
  await writeFile(pinFile, PIN);
  await run("openssl", ["pkcs12", "-export", "-name", "user", "-in", certificate.pem, "-inkey", certificate.key,
    "-passout", `file:${pinFile}`, "-out", pkcs12]);
  await run("certutil", ["-N", "-d", database, "-f", pinFile]);
  await run("pk12util", ["-i", pkcs12, "-d", database, "-k", pinFile, "-w", pinFile]);
  return privateToken(folder, ["module: ../libsoftokn3.so", // from p11-kit's folder of modules
    `x-init-reserved: configdir='${database}' certPrefix='' keyPrefix='' secmod='' flags=noModDB`], { pin: PIN, certificate });
}
