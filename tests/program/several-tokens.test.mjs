// The whole program with three real soft tokens, each with a PIN of its own: any of them signs, one is pulled half way.

import assert from "node:assert/strict";
import { chmod, mkdir, readFile, rm, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { classifyFailure } from "../../extension/src/failures.js";
import { CHOOSE, chooseAndLogIn, chooseFirst, run, SOFTHSM, SoftToken, World } from "../lib/kit.mjs";
import { FAILURE_PREFIX } from "../lib/program/texts.mjs";
import { fakes, product } from "../lib/quillmark.mjs";
import { asUser } from "../lib/token/private-token.mjs";

const world = World.forThisFile(product);

const PINS = ["1111", "2222", "3333"];

/** Tokens "Token 1" to "Token 3" in one module; their certificates stand in the list in this order. */
async function threeTokens(folder) {
  const token = await SoftToken.create(folder, { label: "Token 1", pin: PINS[0] });
  const certificates = [];
  for (const [i, pin] of PINS.entries()) {
    const label = `Token ${i + 1}`;
    if (i > 0) {
      await run("softhsm2-util", ["--init-token", "--free", "--label", label, "--so-pin", "00000000", "--pin", pin],
        { env: { ...process.env, ...token.env } });
    }
    Object.assign(token, { label, pin });
    certificates.push(await world.certificate(`token-${i + 1}`, { to: `20${49 - i}0101000000Z` }));
    await token.addPair(certificates[i], "0a1b"); // one and the same id on all three
  }
  const pulled = join(folder, "pulled");
  await writeFile(join(folder, ".config/pkcs11/modules/token.module"),
    `module: ${join(fakes, "driver/softhsm-whose-tokens-are-pulled.so")}\n`);
  Object.assign(token.env, { QM_SOFTHSM2: SOFTHSM, QM_TOKEN_PULLED: pulled });
  return { token, certificates, pull: (number) => writeFile(pulled, `Token ${number}\n`), putBack: () => rm(pulled) };
}

/** A pinentry that knows the PINs, and writes down for which token it was asked. */
async function knowingPinentry(folder) {
  await mkdir(join(folder, "bin"));
  const asked = join(folder, "asked");
  const script = `#!/bin/sh
echo "OK Please go ahead"
while read -r line; do
  case $line in
    SETDESC*) question=$line; echo OK ;;
    GETPIN)
      for i in 1 2 3; do
        case $question in *"Token $i"*) echo "Token $i" >> '${asked}'; echo "D $i$i$i$i" ;; esac
      done
      echo OK ;;
    *) echo OK ;;
  esac
done
`;
  await writeFile(join(folder, "bin/pinentry"), script);
  await chmod(join(folder, "bin/pinentry"), 0o755);
  return { env: { PATH: `${join(folder, "bin")}:${process.env.PATH}` }, asked: () => readFile(asked, "utf8").catch(() => "") };
}

/** One of those that people have, the first in PATH. */
async function realPinentry(folder) {
  await mkdir(join(folder, "bin"));
  await symlink("/usr/bin/pinentry-gtk-2", join(folder, "bin/pinentry"));
  return { env: { PATH: `${join(folder, "bin")}:${process.env.PATH}` } };
}

/** Signs a return with the certificate in this row, and has it verified. A PIN that is given is typed when asked for. */
async function signWith(host, row, certificate, pin = null) {
  return signAnswering(host, row, certificate, () => pin !== null && host.user.enterPin(pin));
}

/** The same; `answer` is what the user does when asked for a PIN. */
async function signAnswering(host, row, certificate, answer) {
  const text = JSON.stringify({ gstin: "33AAACQ0000A1Z5", row });
  host.send({ action: "GSTReturnSign", hash: text, hashAlgorithm: "SHA256" });
  await host.user.clickCard(row);
  await host.user.clickOk();
  await answer();
  const reply = await host.reply();
  if (reply.status_cd !== 1) return reply;
  const der = Buffer.from(reply.result, "base64");
  assert.equal((await world.judges.cms(der)).toString(), text);
  const { stdout } = await run("openssl", ["cms", "-cmsout", "-print", "-inform", "DER"], { input: der });
  assert.match(stdout.toString(), new RegExp(`token-${row + 1}`));
  assert.ok(certificate);
  return reply;
}

test("Three tokens with three PINs: each signs, also after one was pulled half way and put back", async (t) => {
  const cleanup = world.cleanupOf(t);
  const folder = await cleanup.folder("three-tokens");
  const { token, certificates, pull, putBack } = await threeTokens(folder);
  const pinentry = await knowingPinentry(folder);
  const host = await world.host(t, { token, wrapper: asUser, env: pinentry.env });

  const signed = async (row, pin) => {
    const reply = await signWith(host, row, certificates[row], pin);
    assert.equal(reply.status_cd, 1, reply.result);
  };
  await signed(1, PINS[1]);
  assert.equal(await pinentry.asked(), "", "the PIN of the first token that signs is asked for by the host");
  await signed(0);
  await pull(1);
  const failed = await signWith(host, 0, certificates[0]);
  assert.equal(failed.status_cd, 0);
  await signed(1);
  await signed(2);
  await putBack();
  await signed(0);
  await signed(2);
  await signed(1);
  assert.equal(await pinentry.asked(), "Token 1\nToken 3\n", "each further token once, and none again after the pull");
});

test("A further token's PIN is typed into a real pinentry; cancelled there or wrong, it is a failed login for the page", async (t) => {
  const folder = await world.cleanupOf(t).folder("real-pinentry");
  const { token, certificates } = await threeTokens(folder);
  const { env } = await realPinentry(folder);
  const host = await world.host(t, { token, wrapper: asUser, env });
  assert.equal((await signWith(host, 1, certificates[1], PINS[1])).status_cd, 1);

  for (const answer of [() => host.user.cancelPin(), () => host.user.enterPin("4321")]) {
    const failed = await signAnswering(host, 0, certificates[0], answer);
    assert.equal(failed.status_cd, 0);
    const { code } = classifyFailure(failed.result.replace(FAILURE_PREFIX, ""), { loggedIn: true });
    assert.equal(code, "LOGIN_FAILED", failed.result);
  }
  for (const pin of [PINS[0], null]) {
    const reply = await signWith(host, 0, certificates[0], pin);
    assert.equal(reply.status_cd, 1, reply.result);
  }
});

test("Enter on a token whose first certificate has expired signs with the valid one", async (t) => {
  const folder = await world.cleanupOf(t).folder("expired-first");
  const token = await SoftToken.create(folder);
  await token.addPair(await world.certificate("expired", { to: "20231115000000Z" }), "01");
  const valid = await world.certificate();
  await token.addPair(valid, "02");
  const host = await world.host(t, { token, wrapper: asUser });
  const chosen = await chooseFirst(host, CHOOSE);
  assert.equal(JSON.parse(chosen.result).CertThumbPrint, valid.thumbprint);
  const reply = await chooseAndLogIn(host, { action: "SignAuthToken", authToken: "a token", hashAlgorithm: "SHA256" });
  assert.equal(reply.status_cd, 1, reply.result);
  await world.judges.rsa(Buffer.from(reply.result, "base64"), "a token", valid.pem);
});

test("A renewed certificate with the old one's CKA_ID is a row of its own, and in the signature", async (t) => {
  const folder = await world.cleanupOf(t).folder("renewed");
  const token = await SoftToken.create(folder);
  const renewed = await world.certificate("renewed", { to: "20480101000000Z" });
  const former = await world.certificate("former", { to: "20470101000000Z" });
  await token.addPair(former, "01");
  await token.addPair(renewed, "01");
  const host = await world.host(t, { token, wrapper: asUser });
  for (const [row, certificate] of [[0, renewed], [1, former]]) {
    host.send(CHOOSE);
    await host.user.clickCard(row);
    await host.user.clickOk();
    assert.equal(JSON.parse((await host.reply()).result).CertThumbPrint, certificate.thumbprint);
    host.send({ action: "SignAuthToken", authToken: "a token", hashAlgorithm: "SHA256" });
    await host.user.clickCard(row);
    await host.user.clickOk();
    if (row === 0) await host.user.enterPin("1234");
    const reply = await host.reply();
    assert.equal(reply.status_cd, 1, reply.result);
    await world.judges.rsa(Buffer.from(reply.result, "base64"), "a token", certificate.pem);
  }
});
