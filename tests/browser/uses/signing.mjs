// Choosing a certificate and signing with it, up to the longest and the most that can be signed.

import assert from "node:assert/strict";

import { ask, bytesOf, codeOf, DIGEST, gesture, GST_TEXT, signPdf, sleep } from "../../lib/browser-kit.mjs";

const ANOTHER_CERTIFICATE = "B".repeat(40);
const MANY = 200;

export function signingTests({ name, rig, browserTest, check, pdfIsValid, allowedPage }) {
  browserTest("every action signs what OpenSSL and pdfsig accept, with one PIN for all", async (t) => {
    const page = await allowedPage(t);
    const choice = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    await sleep(2_000); // for the picture: the cards are drawn
    await rig.screenshot("certificate-window");
    await rig.user.choose(choice);
    const { value: certificate } = await choice;
    assert.equal(certificate.Cert, rig.certificate.bytes.toString("base64"));

    const gst = ask(page, "signGstReturn", [GST_TEXT]);
    await rig.user.chooseUntilPin(gst);
    await rig.user.pinWindow();
    await rig.screenshot("pin");
    await rig.user.typePin();
    assert.equal((await check(rig.world.judges.cms(bytesOf((await gst).value)))).toString(), GST_TEXT);

    for (const hash of ["SHA-256", "SHA-384", "SHA-512"]) {
      const auth = await rig.user.choose(ask(page, "signAuthToken", ["token 1K"], { hashAlgorithm: hash }));
      const data = Buffer.from("token 1K");
      await check(rig.world.judges.rsa(bytesOf(auth.value), data, rig.certificate.pem, hash.replace("-", "").toLowerCase()));
    }
    await pdfIsValid(await signPdf(page, "one document", certificate.CertThumbPrint));
    assert.equal(await rig.user.seesAWindow(), false);
    assert.equal((await rig.program.running()).length, 1);
  });

  browserTest("signPdfHash lets the user choose first, and CERTIFICATE_NOT_FOUND is the answer to another choice", async (t) => {
    const page = await allowedPage(t);
    const another = await rig.user.choose(ask(page, "signPdfHash", [DIGEST, ANOTHER_CERTIFICATE]));
    assert.equal(codeOf(another), "CERTIFICATE_NOT_FOUND");
    const again = await rig.user.choose(ask(page, "signPdfHash", [DIGEST, ANOTHER_CERTIFICATE]));
    assert.equal(codeOf(again), "CERTIFICATE_NOT_FOUND");
    const signing = signPdf(page, "after the choice", rig.certificate.thumbprint);
    await rig.user.typePin();
    await pdfIsValid(await signing);
  });

  browserTest(`${MANY} PDF documents in a row are signed with one PIN, and every one is valid`, async (t) => {
    const page = await allowedPage(t);
    const thumbprint = rig.certificate.thumbprint;
    const first = await rig.user.chooseAndLogIn(signPdf(page, "document 0", thumbprint));
    const signed = [first];
    for (let i = 1; i < MANY; i++) {
      signed.push(await signPdf(page, `document ${i}`, thumbprint));
    }
    assert.equal((await rig.program.running()).length, 1);
    for (const pdf of signed) await pdfIsValid(pdf);
    const algorithms = new Set(signed.map(({ hashAlgorithm }) => hashAlgorithm));
    assert.ok(algorithms.size > 1, "some digests needed another algorithm");
  });

  browserTest("the longest GST text comes back signed, and one byte more is TOO_LARGE before anyone is asked", async (t) => {
    const page = await allowedPage(t);
    const limit = await page.evaluate(async () => (await import("./quillmark.js")).MAX_GST_TEXT_BYTES);
    const sign = (length) => page.evaluate((n) => window.ask("signGstReturn", ["x".repeat(n)]), length);
    const request = sign(limit);
    await rig.user.chooseAndLogIn(request);
    assert.equal((await check(rig.world.judges.cms(bytesOf((await request).value)))).length, limit);
    assert.equal(codeOf(await sign(limit + 1)), "TOO_LARGE");
    assert.equal(await rig.user.seesAWindow(), false);
    const strange = await rig.page(t, { origin: rig.otherOrigin });
    await gesture(strange);
    assert.equal(codeOf(await strange.evaluate((n) => window.ask("signGstReturn", ["x".repeat(n)]), limit + 1)), "TOO_LARGE");
  });

  browserTest("the longest token text reaches the host in one piece, and one byte more is TOO_LARGE", async (t) => {
    const page = await allowedPage(t);
    const sign = (length) => page.evaluate((n) => window.ask("signAuthToken", ["y".repeat(n)]), length);
    const limit = 64 * 1024 * 1024 - 4096 - JSON.stringify({ authToken: "" }).length;
    assert.equal(codeOf(await sign(limit + 1)), "TOO_LARGE");
    // Firefox takes as much, but needs most of a minute to hand it over.
    const length = name === "firefox" ? 16 * 1024 * 1024 : limit;
    const request = sign(length);
    await rig.user.chooseAndLogIn(request);
    await check(rig.world.judges.rsa(bytesOf((await request).value), Buffer.alloc(length, "y"), rig.certificate.pem));
  });

  browserTest("a program that nobody asks for 40 seconds is still there, and asks for no second PIN", async (t) => {
    // Browsers stop an extension that is quiet for 30 seconds, and with it what it has started.
    const page = await allowedPage(t);
    const first = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["first"]));
    assert.ok(first.value);
    const programs = await rig.program.running();
    await sleep(40_000);
    const second = await rig.user.choose(ask(page, "signAuthToken", ["second"]));
    assert.equal(await rig.user.seesAWindow(), false);
    await check(rig.world.judges.rsa(bytesOf(second.value), Buffer.from("second"), rig.certificate.pem));
    assert.deepEqual(await rig.program.running(), programs);
  });

  browserTest("a digest with a zero byte is DIGEST_UNSUITABLE, and SHA-1 is UNSUPPORTED_HASH, before anyone is asked", async (t) => {
    const page = await rig.page(t);
    const unsuitable = Buffer.from(bytesOf(DIGEST).fill(0, 7, 8)).toString("base64");
    assert.equal(codeOf(await ask(page, "signPdfHash", [unsuitable, rig.certificate.thumbprint])), "DIGEST_UNSUITABLE");
    assert.equal(codeOf(await ask(page, "signAuthToken", ["token"], { hashAlgorithm: "SHA1" })), "UNSUPPORTED_HASH");
    assert.equal(codeOf(await ask(page, "signAuthToken", ["a\0b"])), "INVALID_ARGUMENT");
    assert.deepEqual(await rig.program.running(), []);
  });
}
