// What the tests of a file share: a desktop, an authority with its certificates, the judges.

import { after, before } from "node:test";

import { Authority } from "./token/certificates.mjs";
import { Desktop } from "./display/desktop.mjs";
import { FakeToken } from "./token/fake-token.mjs";
import { Host } from "./program/host.mjs";
import { Judges } from "./judges/judges.mjs";
import { Cleanup } from "./process.mjs";
import { SoftToken } from "./token/soft-token.mjs";

/** A binary identifier as cards have it, the size of a SHA-1: with zero bytes, and no UTF-8. */
export const BINARY_ID = "00ff80c3280a00d1e2f3a4b5c6d7e8f901234567";

export class World {
  #cleanup = new Cleanup();
  #certificates = new Map();
  #tests = new WeakMap();

  /** Call it once in a file, outside of the tests. */
  static forThisFile() {
    const world = new World();
    before(() => world.#create());
    after(() => world.#cleanup.run());
    return world;
  }

  async #create() {
    this.desktop = await Desktop.start(this.#cleanup);
    this.folder = await this.#cleanup.folder("tests");
    this.authority = await Authority.create(this.folder);
    this.judges = new Judges(this.folder, this.authority.certificate);
  }

  /** The certificate of that name, issued when first asked for; `options` as of Authority.issue. */
  certificate(name = "user", options = {}) {
    if (!this.#certificates.has(name)) this.#certificates.set(name, this.authority.issue(name, options));
    return this.#certificates.get(name);
  }

  /** A scripted token; by default with one user certificate of the CKA_ID "01". */
  async fakeToken({ certificates = null, ...script } = {}) {
    return new FakeToken({ certificates: certificates ?? [{ certificate: await this.certificate(), id: "01" }], ...script });
  }

  /** A SoftHSM token with a user's certificate (binary CKA_ID), an expired one and the authority's own. */
  async softToken(t, options) {
    const token = await SoftToken.create(await this.cleanupOf(t).folder("softhsm"), options);
    await token.addPair(await this.certificate(), BINARY_ID);
    await token.addPair(await this.certificate("expired", { to: "20231115000000Z" }), "02");
    await token.addCertificate(`${this.folder}/ca.der`, "03");
    return token;
  }

  /** Starts a host that ends with the test `t`; `options` as of Host.start. */
  host(t, options = {}) {
    return Host.start({ desktop: this.desktop, cleanup: this.cleanupOf(t), ...options });
  }

  /** Starts a host with a scripted token: { host, token }. */
  async hostWithFake(t, script = {}, options = {}) {
    const token = await this.fakeToken(script);
    return { token, host: await this.host(t, { token, ...options }) };
  }

  /** What ends with the test `t`, last first. */
  cleanupOf(t) {
    if (!this.#tests.has(t)) {
      const cleanup = new Cleanup();
      this.#tests.set(t, cleanup);
      t.after(() => cleanup.run());
    }
    return this.#tests.get(t);
  }
}

/** Sends a request that shows the window, presses OK there, and gives the reply. */
export async function chooseFirst(host, request) {
  host.send(request);
  await host.clickOk();
  return host.reply();
}

/** Like chooseFirst, for a request that goes on to ask for the PIN. */
export async function chooseAndLogIn(host, request, pin = "1234") {
  host.send(request);
  await host.clickOk();
  await host.enterPin(pin);
  return host.reply();
}
