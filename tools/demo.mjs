// The whole job, as `./demo` shows it: node tools/demo.mjs [--auto]

import { mkdir, rm, writeFile } from "node:fs/promises";
import { join, relative } from "node:path";

import {
  Authority, BINARY_ID, bytesOf, Cleanup, Desktop, Host, Judges, makeSignedPdf, SoftToken, User,
} from "../tests/lib/kit.mjs";
import { bin, product } from "../tests/lib/quillmark.mjs";
import { runDemo, step } from "./demo-steps.mjs";

const folder = join(bin, "../../demo");
const PIN = "1234";
const OWNER = "Asha Rao";

/** A user who thinks it over may take this long. */
const PATIENCE = 600_000;

const cleanup = new Cleanup();

async function main() {
  const isAuto = process.argv.includes("--auto") || !(process.env.DISPLAY || process.env.WAYLAND_DISPLAY);
  await rm(folder, { recursive: true, force: true });
  await mkdir(folder, { recursive: true });

  const { token, judges, certificate } = await makeToken();
  const desktop = isAuto ? await Desktop.start(cleanup) : { env: {} };
  const host = await Host.start({ product, desktop, cleanup, token, folder: bin });
  step(`The host runs in ${relative(".", bin)}`);
  const user = isAuto ? new OwnHands(new User(desktop)) : new PersonAtTheDisplay();

  const record = JSON.parse(await ask(host, user, { action: "GetSelCertFromToken" }, "choose"));
  if (record.SelCertSubject.includes(`CN=${OWNER}`) === false) throw new Error(`Choose the certificate of ${OWNER}`);
  step(`Chosen: ${record.SelCertSubject} (thumbprint ${record.CertThumbPrint})`);

  await signReturn(host, user, judges);
  await signDocument(host, judges, record.CertThumbPrint);
  await signAuthToken(host, user, judges, certificate);

  const { code } = await host.finish();
  if (code !== 0) throw new Error(`The host ended with ${code}`);
  step(`The host has ended. What was made lies in ${relative(".", folder)}`);
}

/** A SoftHSM token with the user's certificate, an expired one and the authority's. */
async function makeToken() {
  const token = await SoftToken.create(folder, { pin: PIN, label: "Quillmark demo" });
  const authority = await Authority.create(folder, { subject: "/C=IN/O=Quillmark Demo/CN=Quillmark Demo CA" });
  const issue = (file, name, options) =>
    authority.issue(file, { subject: `/C=IN/O=Quillmark Demo/CN=${name}`, email: "asha@example.in", ...options });
  const certificate = await issue("user", OWNER);
  await token.addPair(certificate, BINARY_ID);
  await token.addPair(await issue("expired", `${OWNER} (old)`, { to: "20231115000000Z" }), "02");
  await token.addCertificate(authority.own.der, "03");
  step("A token is made: a user's certificate, an expired one, a CA's");
  return { token, certificate, judges: new Judges(folder, authority.certificate) };
}

async function signReturn(host, user, judges) {
  const text = JSON.stringify({ gstin: "29ABCDE1234F1Z5", fp: "102026", gt: 3782969.01, remark: "नमस्ते" });
  const cms = bytesOf(await ask(host, user, { action: "GSTReturnSign", hash: text }, "choose and log in"));
  await writeFile(join(folder, "gst-return.p7m"), cms);
  const content = await judges.cms(cms);
  if (content.toString() !== text) throw new Error("The SignedData carries another text than the one that was signed");
  step("GST return signed: openssl cms -verify is satisfied, and the text is in it");
}

async function signDocument(host, judges, thumbprint) {
  const lines = ["Rent agreement", "Signed with a token, by way of the browser's host."];
  const signed = await makeSignedPdf(lines, (hash) =>
    ask(host, null, { action: "PdfSignFromToken", hash, certThumbPrint: thumbprint }));
  const file = join(folder, "signed.pdf");
  await writeFile(file, signed);
  await judges.pdf(signed);
  step(`PDF signed: pdfsig says that the signature is valid (${relative(".", file)})`);
}

async function signAuthToken(host, user, judges, certificate) {
  const authToken = `nonce ${Date.now()}`;
  const signature = await ask(host, user, { action: "SignAuthToken", authToken }, "choose");
  await judges.rsa(bytesOf(signature), Buffer.from(authToken), certificate.pem);
  step("Authentication token signed: openssl dgst -verify is satisfied");
}

/** Sends a request, has the user do what it takes, and gives the result of the reply. */
async function ask(host, user, request, deed = null) {
  host.send({ ...request, nonce: String(Date.now()) });
  if (deed) await user.does(deed, request.action);
  const reply = await host.reply({ timeout: PATIENCE });
  if (reply.status_cd !== 1) throw new Error(`${request.action}: ${reply.result}`);
  return reply.result;
}

class PersonAtTheDisplay {
  async does(deed, action) {
    console.log(`  ${action}: choose "${OWNER}" in the window and press OK`);
    if (deed === "choose and log in") console.log(`  then type the PIN, which is ${PIN}`);
  }
}

class OwnHands {
  constructor(user) {
    this.user = user;
  }

  async does(deed, action) {
    await this.user.desktop.screenshot(join(folder, `window-${action}.png`), await this.user.window());
    // SoftHSM lists its objects in no fixed order: the expired one may come first.
    const isExpired = async (row) => (await this.user.cardColours(row)).includes("ff0000");
    await this.user.clickCard((await isExpired(0)) ? 1 : 0);
    await this.user.clickOk();
    if (deed !== "choose and log in") return;
    await this.user.desktop.screenshot(join(folder, "pin-dialog.png"), await this.user.pinWindow());
    await this.user.enterPin(PIN);
  }
}

await runDemo(main, cleanup);
