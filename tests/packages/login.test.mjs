// The example of a login: its server, with signatures of the real host.

import assert from "node:assert/strict";
import { sign } from "node:crypto";
import { readFile } from "node:fs/promises";
import { test } from "node:test";

import { loginServer } from "../../packages/quillmark-verify/example/server.mjs";
import { chooseAndLogIn, chooseFirst, World } from "../lib/kit.mjs";
import { product } from "../lib/quillmark.mjs";

const world = World.forThisFile(product);
const SITE = "https://portal.example.com";

/** A browser at a server: post(path, body) gives { status, ...answer } and keeps the cookie. */
async function visit(t, options = {}) {
  const server = loginServer({ site: SITE, roots: world.authority.own.bytes, revocation: "none", ...options });
  await new Promise((resolve) => {
    server.listen(0, "127.0.0.1", resolve);
  });
  t.after(() => server.close());
  const origin = `http://127.0.0.1:${server.address().port}`;
  const browser = () => {
    let cookie = "";
    const ask = async (method, path, body) => {
      const response = await fetch(`${origin}${path}`, { method, headers: { cookie, connection: "close" }, body });
      [cookie] = (response.headers.get("set-cookie") ?? cookie).split(";");
      return { status: response.status, headers: response.headers, text: await response.text() };
    };
    const json = async (...args) => {
      const { status, text } = await ask(...args);
      return { status, ...JSON.parse(text) };
    };
    return {
      ask,
      cookie: () => cookie,
      get: (path) => json("GET", path),
      post: (path, body = {}) => json("POST", path, JSON.stringify(body)),
    };
  };
  return { browser };
}

const person = () => world.certificate("Asha Rao");
const certificate = async () => (await person()).bytes.toString("base64");

/** What the host would sign. */
const signature = async (text) => sign("sha256", Buffer.from(text), await readFile((await person()).key)).toString("base64");

test("Who signs the challenge on the token is logged in, and nobody by the same signature again", async (t) => {
  const { browser } = await visit(t);
  const { get, post, cookie } = browser();
  const host = await world.host(t, { token: await world.softToken(t, { pairs: [[await person(), "a1b2c3"]] }) });

  const { challenge } = await post("/challenge");
  const before = cookie();
  const chosen = JSON.parse((await chooseFirst(host, { action: "GetSelCertFromToken" })).result);
  const { result } = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: challenge, hashAlgorithm: "SHA256" });
  const login = { certificate: chosen.Cert, signature: result };
  assert.deepEqual(await post("/login", login), { status: 200, name: "Asha Rao" });
  assert.notEqual(cookie(), before);
  assert.deepEqual(await get("/me"), { status: 200, name: "Asha Rao" });
  assert.deepEqual(await post("/login", login), { status: 401, error: "CHALLENGE_INVALID" });
  assert.deepEqual(await get("/me"), { status: 200, name: null });
});

test("A challenge is another session's no more than it is used twice", async (t) => {
  const { browser } = await visit(t);
  const [asha, mallory] = [browser(), browser()];
  const { challenge } = await asha.post("/challenge");
  await mallory.post("/challenge");
  const login = { certificate: await certificate(), signature: await signature(challenge) };
  assert.deepEqual(await mallory.post("/login", login), { status: 401, error: "SIGNATURE_INVALID" });
  assert.deepEqual(await browser().post("/login", login), { status: 401, error: "CHALLENGE_INVALID" });
  assert.deepEqual(await asha.post("/login", { ...login, signature: await signature("other") }), {
    status: 401,
    error: "SIGNATURE_INVALID",
  });
  assert.deepEqual(await asha.post("/login", login), { status: 401, error: "CHALLENGE_INVALID" });
});

test("Who says which challenge it is does not change which one counts", async (t) => {
  const { browser } = await visit(t);
  const { post } = browser();
  const { challenge: old } = await post("/challenge");
  await post("/challenge");
  const login = { certificate: await certificate(), signature: await signature(old), challenge: old, site: SITE };
  assert.deepEqual(await post("/login", login), { status: 401, error: "SIGNATURE_INVALID" });
});

test("Nobody is revoked unnoticed", async (t) => {
  const { browser } = await visit(t, { revocation: "require" });
  const { post } = browser();
  const { challenge } = await post("/challenge");
  const login = { certificate: await certificate(), signature: await signature(challenge) };
  assert.deepEqual(await post("/login", login), { status: 401, error: "REVOCATION_UNKNOWN" });
});

test("What is no request has an answer, too", async (t) => {
  const { browser } = await visit(t);
  const { ask } = browser();
  for (const body of ["{", "x".repeat(100_000)]) assert.equal((await ask("POST", "/login", body)).status, 400);
  for (const body of ["null", "5", "[]", "{}"]) assert.equal((await ask("POST", "/login", body)).status, 401);
  for (const path of ["/../server.mjs", "/server.mjs", "/toString", "/login"]) assert.equal((await ask("GET", path)).status, 404);
  const page = await ask("GET", "/");
  assert.deepEqual([page.status, page.headers.get("content-type"), page.text.includes("/login.js")], [200, "text/html", true]);
});
