// A scripted PKCS#11 module: what it is to do, and what was done to it.

import { copyFile, readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";

/** PKCS#11's numbers, by their names there. */
export const CK = {
  CKA_CLASS: 0x0, CKA_TOKEN: 0x1, CKA_VALUE: 0x11, CKA_CERTIFICATE_TYPE: 0x80, CKA_KEY_TYPE: 0x100, CKA_ID: 0x102,
  CKO_CERTIFICATE: 1, CKO_PRIVATE_KEY: 3, CKU_USER: 1,
  CKF_RW_SESSION: 2, CKF_SERIAL_SESSION: 4,
  CKM_RSA_PKCS: 0x1, CKM_SHA256_RSA_PKCS: 0x40, CKM_SHA384_RSA_PKCS: 0x41, CKM_SHA512_RSA_PKCS: 0x42,
  CKR_GENERAL_ERROR: 0x5, CKR_DEVICE_REMOVED: 0x32, CKR_FUNCTION_NOT_SUPPORTED: 0x54, CKR_OPERATION_ACTIVE: 0x90,
  CKR_PIN_INCORRECT: 0xa0, CKR_PIN_LOCKED: 0xa4, CKR_SESSION_HANDLE_INVALID: 0xb3, CKR_TOKEN_NOT_PRESENT: 0xe0,
  CKR_TOKEN_WRITE_PROTECTED: 0xe2, CKR_USER_ALREADY_LOGGED_IN: 0x100, CKR_CRYPTOKI_NOT_INITIALIZED: 0x190,
  CKR_CRYPTOKI_ALREADY_INITIALIZED: 0x191,
};

/** The entry points that the host resolves, in its order. */
export const ENTRY_POINTS = ["C_Initialize", "C_Finalize", "C_GetSlotList", "C_OpenSession", "C_Login",
  "C_GetAttributeValue", "C_FindObjectsInit", "C_FindObjects", "C_FindObjectsFinal", "C_SignInit", "C_Sign",
  "C_SignFinal"];

export class FakeToken {
  #folder;

  /**
   * `module`: the module's file. `certificates`: what is on the token, in this order: { certificate, id } with the CKA_ID as
   * bytes or text, and `key: false` for one without a private key. Everything else is the module's script, as its README says.
   */
  constructor({ module, certificates = [], ...script }) {
    this.module = module;
    this.certificates = certificates;
    this.script = { slots: [1], pin: "1234", ...script };
    this.pin = this.script.pin;
  }

  /** Puts the script and the files that it names into the folder that a host is to run in. */
  async prepare(folder) {
    this.#folder = folder;
    const objects = [];
    for (const [i, { certificate, id, key = true }] of this.certificates.entries()) {
      const entry = { id: Buffer.from(id).toString("hex") };
      await copyFile(certificate.der, join(folder, `${i}.der`));
      objects.push({ ...entry, class: "certificate", file: `${i}.der` });
      if (!key) continue;
      await copyFile(certificate.key, join(folder, `${i}.key`));
      objects.push({ ...entry, class: "privateKey", file: `${i}.key` });
    }
    await writeFile(join(folder, "fake-pkcs11.json"), JSON.stringify({ ...this.script, objects }));
  }

  /** All calls so far, or those of one entry point: [{ call, nth, in, out, rv }]. */
  async calls(name = null) {
    const text = await readFile(join(this.#folder, "fake-pkcs11-calls.jsonl"), "utf8").catch(() => "");
    const calls = text.split("\n").filter(Boolean).map((line) => JSON.parse(line));
    const broken = calls.find((call) => call.unusableScript);
    if (broken) throw new Error(`The fake module cannot use its script: ${broken.unusableScript}`);
    return name ? calls.filter(({ call }) => call === name) : calls;
  }

  /** The names of all calls so far. */
  async sequence() {
    return (await this.calls()).map(({ call }) => call);
  }
}
