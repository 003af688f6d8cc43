// What the tests of a file share: a desktop, an authority with its certificates, the judges. All ends with the file, and what
// a test has started with the test.

import assert from "node:assert/strict";
import { after, before } from "node:test";

import { Cleanup } from "./cleanup.mjs";
import { Desktop } from "./display/desktop.mjs";
import { Judges } from "./judges/judges.mjs";
import { Host } from "./program/host.mjs";
import { ERROR_TITLE } from "./program/texts.mjs";
import { Authority } from "./token/certificates.mjs";
import { FakeToken } from "./token/fake-token.mjs";
import { BINARY_ID, SoftToken } from "./token/soft-token.mjs";
import { User } from "./user/user.mjs";

export class World {
  #product;
  #onDesktop;
  #cleanup = new Cleanup();
  #certificates = new Map();
  #tests = new WeakMap();

  /**
   * Call it once in a file, outside of the tests. `product`: what is tested, as files { program, driver, logo }, and
   * { fakeModule(without) }, which gives the scripted module with or without an entry point. `onDesktop`: as of Desktop.start.
   */
  static forThisFile(product, onDesktop = {}) {
    const world = new World();
    world.#product = product;
    world.#onDesktop = onDesktop;
    before(() => world.#create());
    after(() => world.#cleanup.run());
    return world;
  }

  async #create() {
    this.desktop = await this.addDesktop(this.#onDesktop);
    this.folder = await this.#cleanup.folder("tests");
    this.authority = await Authority.create(this.folder);
    this.judges = new Judges(this.folder, this.authority.certificate);
  }

  /** One more display, until the file ends; `options` as of Desktop.start. */
  addDesktop(options) {
    return Desktop.start(this.#cleanup, options);
  }

  /** The certificate of that name, issued when first asked for; `options` as of Authority.issue. */
  certificate(name = "user", options = {}) {
    if (!this.#certificates.has(name)) this.#certificates.set(name, this.authority.issue(name, options));
    return this.#certificates.get(name);
  }

  /** A scripted token; by default with one user certificate of the CKA_ID "01". */
  async fakeToken({ certificates = null, without = null, ...script } = {}) {
    const module = this.#product.fakeModule(without);
    return new FakeToken({ module, certificates: certificates ?? [{ certificate: await this.certificate(), id: "01" }], ...script });
  }

  /**
   * A SoftHSM token with these pairs [certificate, CKA_ID in hex]; by default with a user's certificate (binary CKA_ID), an
   * expired one and the authority's own.
   */
  async softToken(t, { pairs = null, ...options } = {}) {
    const token = await SoftToken.create(await this.cleanupOf(t).folder("softhsm"), options);
    const usual = async () => [[await this.certificate(), BINARY_ID], [await this.certificate("expired", { to: "20231115000000Z" }), "02"]];
    for (const pair of pairs ?? (await usual())) await token.addPair(...pair);
    if (pairs === null) await token.addCertificate(this.authority.own.der, "03");
    return token;
  }

  /** Starts a host that ends with the test `t`; `options` as of Host.start. Its `user` sits at its desktop. */
  async host(t, { desktop = this.desktop, ...options } = {}) {
    const host = await Host.start({ desktop, product: this.#product, cleanup: this.cleanupOf(t), ...options });
    return Object.assign(host, { user: new User(desktop) });
  }

  /** Starts a host with a scripted token: { host, token }. */
  async hostWithFake(t, script = {}, options = {}) {
    const token = await this.fakeToken(script);
    return { token, host: await this.host(t, { token, ...options }) };
  }

  /** A host that could not load its driver, after the user has closed the box that says so. */
  async hostWithoutDriver(t, options = {}) {
    const host = await this.host(t, { token: null, ...options });
    await this.desktop.key(await this.desktop.window(ERROR_TITLE), "Return");
    assert.deepEqual(await host.exit(), { code: 1, signal: null });
    return host;
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
