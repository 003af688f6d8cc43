// A page in this process: the packed page library asks the extension's own table and the real host, without a browser and without
// the extension's questions. The user of the host takes the first card, or those that `rows` names, and types the PIN.

import assert from "node:assert/strict";
import { createRequire } from "node:module";
import { join } from "node:path";
import { after } from "node:test";
import { pathToFileURL } from "node:url";

import { operationOf } from "../../../extension/src/operations.js";
import { commonName } from "../../../extension/src/pdf/cms.js";
import { bytesOf, waitFor } from "../../lib/kit.mjs";
import { prepared } from "../../extension/pdf/sign.mjs";
import { installPacked } from "./packed.mjs";

export class Page {
  #host;
  #pin;
  #isLoggedIn = false;
  #rows;

  /** Packs and installs the library in the world's folder, and gives { quillmark, jws, xml }; `others` as of installPacked. */
  static async load(world, { others = [], names = ["quillmark"] } = {}) {
    await waitFor("the authority", () => world.judges);
    await installPacked("quillmark", world.folder, { others });
    globalThis.window = { postMessage: (greeting, target, [port]) => attend(port) };
    return Promise.all(names.map((name) => import(pathToFileURL(createRequire(join(world.folder, "page.js")).resolve(name)))));
  }

  /** From here on what the library asks goes to this page's host, a new one for the test `t` on a token with these pairs. */
  static async open(t, world, { rows = [], pairs = null } = {}) {
    const page = new Page();
    const token = await world.softToken(t, { pairs });
    page.#host = await world.host(t, { token });
    page.#pin = token.pin;
    page.#rows = [...rows];
    Page.current = page;
  }

  /** From here on what the library asks fails the test. */
  static close() {
    Page.current = null;
  }

  async perform(name, values, ask) {
    if (name === "signPdfs") return this.#signPdfs(operationOf(name).check(values), ask);
    const { check, toProgram, result, userChooses } = operationOf(name);
    return result(await this.#textOf(toProgram(check(values)), userChooses));
  }

  // What the window for documents does, without showing them.
  async #signPdfs({ documents }, ask) {
    const { Cert, CertThumbPrint: certThumbPrint } = await this.perform("selectCertificate", {});
    for (const [document, { size, reason }] of documents.entries()) {
      const bytes = octetsOf(await ask({ what: "piece", document, at: 0, length: size }));
      const details = { signer: commonName(octetsOf(Cert)), reason, time: new Date(), room: 8192 };
      const { digest, insert } = await prepared(bytes, details);
      const hash = Buffer.from(digest).toString("base64");
      const signature = octetsOf(await this.perform("signPdfHash", { hash, certThumbPrint }));
      await ask({ what: "outcome", document, appended: Buffer.from(insert(signature)).toString("base64") });
    }
  }

  async #textOf(message, userChooses) {
    this.#host.send(message);
    if (userChooses) {
      await this.#host.user.clickCard(this.#rows.shift() ?? 0);
      await this.#host.user.clickOk();
    }
    if (message.action !== "GetSelCertFromToken" && !this.#isLoggedIn) {
      await this.#host.user.enterPin(this.#pin);
      this.#isLoggedIn = true;
    }
    const { status_cd: succeeded, result } = await this.#host.reply();
    assert.equal(succeeded, 1, result);
    return result;
  }
}

/** In a buffer of their own, as browsers have them. */
const octetsOf = (base64) => new Uint8Array(bytesOf(base64));

// The library's end of an open channel would keep the tests' process alive.
const ports = new Set();
after(() => ports.forEach((port) => port.close()));

function attend(port) {
  ports.add(port);
  const asked = new Map();
  port.onmessage = async ({ data: { type, id, operation, values, number, text } }) => {
    if (type === "reply") return asked.get(number)(text);
    const ask = (query) => new Promise((resolve) => {
      asked.set(asked.size, resolve);
      port.postMessage({ type: "query", id, number: asked.size - 1, query });
    });
    try {
      assert.ok(Page.current, "nobody was to be asked");
      port.postMessage({ type: "result", id, value: await Page.current.perform(operation, values, ask) });
    } catch ({ code = "BAD_REPLY", message }) {
      port.postMessage({ type: "error", id, error: { code, message } });
    }
  };
  port.postMessage({ type: "ready" });
}
