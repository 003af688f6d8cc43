// Every fault of a token in every call of every flow: one reply with the right text, the right lines in the log, no
// window left, and the next request served. One process is led through many faults; those that it cannot forget have one
// of their own.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { rename, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { before, test } from "node:test";

import { bytesOf, CHOOSE, CK, Cleanup, FAILURE_PREFIX, Host, NORMAL_END, User, waitFor } from "../lib/kit.mjs";
import { product } from "../lib/quillmark.mjs";
import { callFails, callsOf, casesOf, FLOWS, nothingComesOfIt } from "./lib/token-faults.mjs";
import { world } from "./lib/world.mjs";

/** Hosts at a time, each on a display of its own: they sleep most of the time. */
const WORKERS = 6;

const TEXT = "text to be signed";
const digest = createHash("sha256").update(TEXT).digest();
// The hash of an IT return is the Base64 of the Base64 of the digest, and the CKA_ID of its key.
const itHash = Buffer.from(digest.toString("base64")).toString("base64");

const desktops = [];
let certificate;

before(async () => {
  assert.ok(!digest.includes(0)); // or the token would be given less
  await waitFor("the authority", () => world.judges); // Node may begin all hooks of a file at once
  certificate = await world.certificate();
  while (desktops.length < WORKERS) desktops.push(await world.addDesktop());
});

const requests = {
  choose: CHOOSE,
  GST: { action: "GSTReturnSign", hash: TEXT },
  IT: { action: "ITReturnSign", hash: itHash },
  "auth token": { action: "SignAuthToken", authToken: TEXT },
  PDF: { action: "PdfSignFromToken", hash: digest.toString("base64") },
};

/** Whether the result of a request is what was asked for: openssl says so. */
const judges = {
  choose: (result) => assert.equal(JSON.parse(result).CertThumbPrint, certificate.thumbprint),
  GST: async (result) => assert.equal((await world.judges.cms(bytesOf(result))).toString(), TEXT),
  IT: async (result) => assert.deepEqual(
    (await world.judges.recover(bytesOf(result), certificate.pem)).subarray(-digest.length), digest),
  "auth token": (result) => world.judges.rsa(bytesOf(result), TEXT, certificate.pem),
  PDF: (result) => world.judges.cms(bytesOf(result), { content: TEXT }),
};

/** A host that is led through faults, with its user. */
class Patient {
  #nonce = 0;
  #isLoggedIn = false;

  static async start(desktop, cleanup, flow, script) {
    const patient = new Patient();
    Object.assign(patient, { desktop, flow, user: new User(desktop) });
    patient.token = await world.fakeToken({ certificates: [{ certificate, id: itHash }], ...script });
    patient.host = await Host.start({ product, desktop, cleanup, token: patient.token, settings: { AppLogLevel: 2 },
      env: { MALLOC_PERTURB_: "85" } }); // what is used before it is set is rubbish
    await patient.#ask({}); // past the start
    if (!flow.window) await patient.succeed(FLOWS.find(({ name }) => name === "choose"));
    return patient;
  }

  /** What goes wrong from now on. */
  async ail(faults) {
    const file = join(this.host.folder, "fake-pkcs11-faults.json");
    await writeFile(`${file}.new`, JSON.stringify(faults));
    await rename(`${file}.new`, file);
  }

  /** The flow's request fares as `expected` (a case) says, and the host serves the next one, with no window left. */
  async undergo(expected, flow = this.flow) {
    const from = (await this.host.logLines()).length;
    const reply = await this.#ask({ ...requests[flow.name], certThumbPrint: certificate.thumbprint }, expected);
    this.#isLoggedIn ||= expected.logsIn && expected.succeeds;
    if (expected.result === null) {
      assert.equal(reply.status_cd, 1, reply.result);
      if (expected.isNoCertificate) this.#judgeWithoutCertificate(reply.result);
      else if (expected.isUnsigned) await this.#judgeUnsigned(reply.result);
      else await judges[flow.name](reply.result);
    } else {
      assert.deepEqual([reply.status_cd, reply.result], [0, `${FAILURE_PREFIX}${expected.result}`]);
    }
    assert.deepEqual((await this.host.logLines()).slice(from), expected.log);
    assert.deepEqual(await this.desktop.windows(".*"), [], "a window is left");
    assert.equal((await this.#ask({ text: "served" })).result, `${FAILURE_PREFIX}echo: served`);
  }

  async succeed(flow = this.flow) {
    await this.ail([]);
    await this.undergo(nothingComesOfIt(flow), flow);
  }

  /** The next reply is the answer to this request: there is one for each. */
  async #ask(request, { answer = null, logsIn = false } = {}) {
    const nonce = String(++this.#nonce);
    const reply = this.host.request({ ...request, nonce }, { timeout: 20_000 });
    if (answer || logsIn) await this.user.answerUntil(reply, { button: answer, pin: this.token.pin });
    assert.equal((await reply).nonce, nonce);
    return reply;
  }

  /** Nothing in the place of a signature; in a SignedData, what openssl does not verify. */
  async #judgeUnsigned(result) {
    if (this.flow.name === "auth token") assert.equal(result, "");
    else await assert.rejects(judges[this.flow.name](result), /Verification failure|failed/);
  }

  /** The record of a certificate that the token gave no bytes of; a SignedData with a hole; signatures as ever. */
  #judgeWithoutCertificate(result) {
    if (this.flow.name === "choose") {
      const record = JSON.parse(result);
      assert.deepEqual(Object.keys(record), ["ErrMsg", "ChainCert", "CKA_ID"]);
      assert.deepEqual([record.ChainCert, record.CKA_ID], [false, itHash]);
    } else {
      assert.ok(result.length > 300, result);
    }
  }
}

/** A list of cases for one process, and what it must be able to do after them. */
class Course {
  constructor(flow, name, cases, { script = { forgiving: true }, last = nothingComesOfIt(flow) } = {}) {
    Object.assign(this, { flow, name: `${flow.name}: ${name}`, cases, script, last });
  }

  /** Adds to `passed` what was passed. */
  async run(desktop, passed) {
    const cleanup = new Cleanup();
    try {
      const patient = await Patient.start(desktop, cleanup, this.flow, this.script);
      for (const expected of this.cases) {
        await patient.ail(expected.faults);
        await named(expected.name, patient.undergo(expected));
        passed.count += 1;
      }
      await patient.ail([]);
      await named("and then", patient.undergo(this.last));
      assert.deepEqual(await patient.host.finish(), NORMAL_END);
    } finally {
      await cleanup.run();
    }
  }
}

/** Says in the error of a failed case which one it was. */
async function named(name, outcome) {
  try {
    return await outcome;
  } catch (error) {
    throw new Error(`${name}: ${error.message}`, { cause: error });
  }
}

/** Runs the courses, some at a time. Says how many cases there were, and that all were passed. */
async function runCourses(t, courses) {
  const passed = { count: 0 };
  const free = [...desktops];
  await Promise.all(courses.map((course) => t.test(course.name, async () => {
    const desktop = free.pop();
    try {
      await course.run(desktop, passed);
    } finally {
      free.push(desktop);
    }
  })));
  const all = courses.reduce((sum, { cases }) => sum + cases.length, 0);
  console.error(`${t.name}: ${all} cases, ${all - passed.count} missed`);
  assert.equal(passed.count, all);
}

test("Faults of the token", { concurrency: WORKERS }, async (t) => {
  const courses = FLOWS.flatMap((flow) => {
    const cases = casesOf(flow);
    const parts = [["opening"], ["listing"], ["login", "key", "signing"]].map((parts) => {
      const ofParts = cases.filter(({ part, isLast }) => parts.includes(part) && !isLast);
      return new Course(flow, `${ofParts.length} faults of ${parts.join(", ")}`, ofParts);
    });
    const unforgettable = cases.filter(({ isLast }) => isLast)
      .map((it) => new Course(flow, it.name, [it], { last: it.after }));
    return [...parts.filter((it) => it.cases.length > 0), ...unforgettable];
  });
  courses.sort((a, b) => b.cases.length - a.cases.length);
  await runCourses(t, courses);
});

// What a module that goes by the standard makes of a second C_Initialize, and of a search or signature left open.
test("After a fault, a module that forgives nothing", { concurrency: WORKERS }, async (t) => {
  const flow = FLOWS.find(({ name }) => name === "GST");
  const isInitialized = { part: "opening", label: "C_Initialize" };
  const next = {
    C_GetSlotList: [isInitialized, CK.CKR_CRYPTOKI_ALREADY_INITIALIZED],
    C_OpenSession: [isInitialized, CK.CKR_CRYPTOKI_ALREADY_INITIALIZED],
    C_Sign: [{ part: "signing", label: "C_SignInit" }, CK.CKR_OPERATION_ACTIVE],
  };
  for (const call of ["C_FindObjects", "C_GetAttributeValue", "C_FindObjectsFinal"]) next[call] = "open search";
  const calls = callsOf(flow);
  await runCourses(t, calls.map((at) => {
    const nth = calls.filter(({ call }) => call === at.call).indexOf(at) + 1; // in the whole flow
    const faults = [{ call: at.call, nth, rv: CK.CKR_DEVICE_REMOVED }];
    const fault = { name: at.label, faults, ...callFails(flow, at, CK.CKR_DEVICE_REMOVED) };
    let what = next[at.call];
    if (what === "open search") {
      const search = calls.find(({ part, call }) => part === at.part && call === "C_FindObjectsInit");
      what = [search, CK.CKR_OPERATION_ACTIVE];
    }
    return new Course(flow, `${at.label}, call ${at.nth}`, [fault],
      { script: {}, last: what ? callFails(flow, ...what) : nothingComesOfIt(flow) });
  }));
});
