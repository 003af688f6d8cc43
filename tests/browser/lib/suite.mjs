// What has to hold in every browser, from a web page to a signature that OpenSSL and pdfsig accept.

import assert from "node:assert/strict";
import { readFile, rename, rm, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { after, test } from "node:test";

import { PDFDocument } from "pdf-lib";

import { ck } from "../../program/lib/fake-token.mjs";
import { sleep, waitFor } from "../../program/lib/process.mjs";
import { ask, Rig } from "./rig.mjs";

const GST_TEXT = JSON.stringify({ gstin: "33ABCDE1234F1Z5", note: "₹ 1,25,000 – నమస్తే", lines: "a\nb" });
const DIGEST = Buffer.alloc(32, 0x5a).toString("base64");
const ANOTHER_CERTIFICATE = "B".repeat(40);
const MANY = 200;

const signPdf = (page, name, thumbprint) => page.evaluate((...args) => window.signPdf(...args), name, thumbprint);
const bytes = (base64) => Buffer.from(base64, "base64");
const codeOf = ({ code, value }) => code ?? `no error, but ${JSON.stringify(value)?.slice(0, 80)}`;

/** Defines all tests for "chromium" or "firefox". Call it once in a file. */
export function browserTests(name) {
  const rig = Rig.forThisFile(name);
  const title = name[0].toUpperCase() + name.slice(1);
  let ran = 0;
  const browserTest = (sentence, body) => test(`${title}: ${sentence}`, async (t) => {
    try {
      await body(t);
    } catch (error) {
      await rig.screenshot(`failed-${sentence.replaceAll(/\W+/g, "-").slice(0, 60)}`).catch(() => {});
      throw error;
    }
    ran++;
  });
  let signatures = 0;
  after(() => process.stderr.write(`${title}: ${ran} tests passed, ${signatures} signatures verified\n`));

  const check = async (verification) => {
    const result = await verification;
    signatures++;
    return result;
  };

  async function pdfIsValid({ value, ...failure }) {
    assert.ok(value, JSON.stringify(failure));
    const file = join(rig.world.folder, "signed.pdf");
    await writeFile(file, bytes(value));
    await check(rig.world.judges.pdf(file));
  }

  /** A page of the site that the user has allowed for good. */
  async function allowedPage(t, options) {
    const page = await rig.page(t);
    if ((await ask(page, "status")).value.permission === "allowed") {
      if (!options) return page;
    } else {
      const request = ask(page, "selectCertificate");
      await rig.user.consent(rig.origin, "always");
      await rig.user.cancel(request);
      await request;
    }
    // With the page the program goes that the permission has started.
    await page.close();
    await rig.programGone();
    return rig.page(t, options);
  }

  // ---- consent

  browserTest("the first request asks the user for consent, and the answer Once is for this request alone", async (t) => {
    const page = await rig.page(t);
    assert.equal((await ask(page, "status")).value.permission, "ask");
    for (let round = 0; round < 2; round++) {
      const request = ask(page, "selectCertificate");
      if (round === 0) {
        await rig.user.consentWindow(rig.origin);
        await rig.screenshot("consent");
      }
      await rig.user.consent(rig.origin, "once");
      await rig.user.choose(request);
      assert.equal((await request).value.CertThumbPrint, rig.thumbprint);
    }
    assert.equal((await ask(page, "status")).value.permission, "ask");
  });

  browserTest("a denied site gets ORIGIN_DENIED, without a second question until the page is loaded anew", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "signGstReturn", [GST_TEXT]);
    await rig.user.consentWindow(rig.origin);
    await rig.screenshot("consent-text");
    await rig.user.consent(rig.origin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
    assert.equal(codeOf(await ask(page, "signGstReturn", [GST_TEXT])), "ORIGIN_DENIED");
    assert.deepEqual(await rig.programs(), []);
    await page.reload();
    await page.waitForFunction("window.ask");
    const anew = ask(page, "selectCertificate");
    await rig.user.consent(rig.origin, "deny");
    assert.equal(codeOf(await anew), "ORIGIN_DENIED");
  });

  browserTest("a consent window whose page is withdrawn closes by itself", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "selectCertificate");
    const window = await rig.user.consentWindow(rig.origin);
    await page.evaluate(() => window.withdrawal.abort());
    assert.equal(codeOf(await request), "ABORTED");
    await rig.user.gone(window);
  });

  browserTest("a site that is always allowed is not asked about again, until the settings page revokes it", async (t) => {
    const page = await rig.page(t);
    const request = ask(page, "selectCertificate");
    await rig.user.consent(rig.origin, "always");
    await rig.user.cancel(request);
    assert.equal(codeOf(await request), "USER_CANCELLED");
    assert.equal((await ask(page, "status")).value.permission, "allowed");

    const window = await rig.user.browserWindow("Test page");
    await rig.user.openTab(window, `${rig.browser.extensionUrl}/options/options.html`, "Quillmark - Settings");
    await rig.screenshot("settings");
    // The site's Remove button is the first thing on the page that takes the keyboard.
    await rig.user.press(window, "Tab", "Return");
    await waitFor("the site to be revoked", async () => (await ask(page, "status")).value.permission === "ask");
    await rig.user.press(window, "ctrl+w");
  });

  browserTest("a frame counts by its own origin, not by its page's", async (t) => {
    const page = await allowedPage(t, { path: "/framing" });
    const frame = await waitFor("the frame", () => page.frames().find((each) => each.url().startsWith(rig.otherOrigin)));
    await frame.waitForFunction("window.ask");
    assert.equal((await ask(page, "status")).value.permission, "allowed");
    assert.equal((await ask(frame, "status")).value.permission, "ask");
    const request = ask(frame, "selectCertificate");
    await rig.user.consentWindow(rig.otherOrigin);
    await rig.screenshot("consent-frame");
    await rig.user.consent(rig.otherOrigin, "deny");
    assert.equal(codeOf(await request), "ORIGIN_DENIED");
  });

  if (name === "firefox") {
    browserTest("a site that the administrator denies gets ORIGIN_DENIED without a question", async (t) => {
      const page = await rig.page(t, { origin: rig.deniedOrigin });
      assert.equal((await ask(page, "status")).value.permission, "denied");
      assert.equal(codeOf(await ask(page, "selectCertificate")), "ORIGIN_DENIED");
    });
  }

  browserTest("a page of another computer without https finds no extension", async (t) => {
    const page = await rig.page(t, { origin: rig.outsideOrigin });
    assert.equal(codeOf(await ask(page, "selectCertificate")), "EXTENSION_MISSING");
    assert.deepEqual((await ask(page, "status")).value, { extension: null, permission: null, host: null, waiting: 0 });
  });

  // ---- choosing and signing

  browserTest("every action signs what OpenSSL and pdfsig accept, with one PIN for all", async (t) => {
    const page = await allowedPage(t);
    const choice = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    await sleep(700); // the cards are drawn
    await rig.screenshot("certificate-window");
    await rig.user.choose(choice);
    const { value: certificate } = await choice;
    assert.equal(certificate.Cert, rig.certificate.bytes.toString("base64"));

    const gst = ask(page, "signGstReturn", [GST_TEXT]);
    await rig.user.choose(gst);
    await rig.user.pinWindow();
    await rig.screenshot("pin");
    await rig.user.typePin();
    assert.equal((await check(rig.world.judges.cms(bytes((await gst).value)))).toString(), GST_TEXT);

    for (const hash of ["SHA-256", "SHA-384", "SHA-512"]) {
      const auth = ask(page, "signAuthToken", ["token 1K"], { hashAlgorithm: hash });
      await rig.user.choose(auth);
      const data = Buffer.from("token 1K");
      await check(rig.world.judges.rsa(bytes((await auth).value), data, rig.certificate.pem, hash.replace("-", "").toLowerCase()));
    }
    await pdfIsValid(await signPdf(page, "one document", certificate.CertThumbPrint));
    assert.equal(await rig.user.seesAWindow(), false);
    assert.equal((await rig.programs()).length, 1);
  });

  browserTest("signPdfHash lets the user choose first, and CERTIFICATE_NOT_FOUND is the answer to another choice", async (t) => {
    const page = await allowedPage(t);
    const another = ask(page, "signPdfHash", [DIGEST, ANOTHER_CERTIFICATE]);
    await rig.user.choose(another);
    assert.equal(codeOf(await another), "CERTIFICATE_NOT_FOUND");
    assert.equal(codeOf(await ask(page, "signPdfHash", [DIGEST, ANOTHER_CERTIFICATE])), "CERTIFICATE_NOT_FOUND");
    const signing = signPdf(page, "after the choice", rig.thumbprint);
    await rig.user.typePin();
    await pdfIsValid(await signing);
  });

  browserTest(`${MANY} PDF documents in a row are signed with one PIN, and every one is valid`, async (t) => {
    const page = await allowedPage(t);
    const thumbprint = rig.thumbprint;
    const first = signPdf(page, "document 0", thumbprint);
    await rig.user.chooseAndLogIn(first);
    const signed = [await first];
    for (let i = 1; i < MANY; i++) {
      signed.push(await signPdf(page, `document ${i}`, thumbprint));
    }
    assert.equal((await rig.programs()).length, 1);
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
    assert.equal((await check(rig.world.judges.cms(bytes((await request).value)))).length, limit);
    assert.equal(codeOf(await sign(limit + 1)), "TOO_LARGE");
    assert.equal(await rig.user.seesAWindow(), false);
    const strange = await rig.page(t, { origin: rig.otherOrigin });
    assert.equal(codeOf(await strange.evaluate((n) => window.ask("signGstReturn", ["x".repeat(n)]), limit + 1)), "TOO_LARGE");
  });

  browserTest("a token text of 8 MiB reaches the program in one piece", async (t) => {
    const page = await allowedPage(t);
    const request = page.evaluate(() => window.ask("signAuthToken", ["y".repeat(8 * 1024 * 1024)]));
    await rig.user.chooseAndLogIn(request);
    await check(rig.world.judges.rsa(bytes((await request).value), Buffer.alloc(8 * 1024 * 1024, "y"), rig.certificate.pem));
  });

  browserTest("a digest with a zero byte is DIGEST_UNSUITABLE, and SHA-1 is UNSUPPORTED_HASH, before anyone is asked", async (t) => {
    const page = await rig.page(t);
    const unsuitable = Buffer.from(bytes(DIGEST).fill(0, 7, 8)).toString("base64");
    assert.equal(codeOf(await ask(page, "signPdfHash", [unsuitable, rig.thumbprint])), "DIGEST_UNSUITABLE");
    assert.equal(codeOf(await ask(page, "signAuthToken", ["token"], { hashAlgorithm: "SHA1" })), "UNSUPPORTED_HASH");
    assert.equal(codeOf(await ask(page, "signAuthToken", ["a\0b"])), "INVALID_ARGUMENT");
    assert.deepEqual(await rig.programs(), []);
  });

  // ---- what goes wrong

  browserTest("Cancel is USER_CANCELLED, and the next request shows the window again", async (t) => {
    const page = await allowedPage(t);
    const operations = { selectCertificate: [], signGstReturn: ["text"], signItReturn: ["aGFzaA==", "ABCDE1234F"], signAuthToken: ["token"] };
    for (const [operation, args] of Object.entries(operations)) {
      const request = ask(page, operation, args);
      await rig.user.cancel(request);
      assert.equal(codeOf(await request), "USER_CANCELLED", operation);
    }
  });

  browserTest("a wrong PIN and a PIN left empty are LOGIN_FAILED, the right one signs, and is not asked for twice", async (t) => {
    const page = await allowedPage(t);
    for (const pin of ["9999", ""]) {
      const request = ask(page, "signAuthToken", ["token"]);
      await rig.user.chooseAndLogIn(request, pin);
      assert.equal(codeOf(await request), "LOGIN_FAILED");
    }
    const right = ask(page, "signAuthToken", ["token"]);
    await rig.user.chooseAndLogIn(right);
    await check(rig.world.judges.rsa(bytes((await right).value), Buffer.from("token"), rig.certificate.pem));
    const second = ask(page, "signAuthToken", ["second"]);
    await rig.user.choose(second);
    await check(rig.world.judges.rsa(bytes((await second).value), Buffer.from("second"), rig.certificate.pem));
  });

  browserTest("no token is TOKEN_MISSING, and the token is found once it is there", async (t) => {
    const page = await allowedPage(t);
    const tokens = join(rig.home, "tokens");
    await rename(tokens, `${tokens}-away`);
    const missing = await ask(page, "selectCertificate").finally(() => rename(`${tokens}-away`, tokens));
    assert.equal(codeOf(missing), "TOKEN_MISSING");
    await page.close();
    await rig.programGone();
    const again = ask(await allowedPage(t), "selectCertificate");
    await rig.user.choose(again);
    assert.equal((await again).value.CertThumbPrint, rig.thumbprint);
  });

  browserTest("an income-tax return whose hash is no key's name is KEY_NOT_FOUND", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "signItReturn", [DIGEST, "ABCDE1234F"]);
    await rig.user.chooseAndLogIn(request);
    assert.equal(codeOf(await request), "KEY_NOT_FOUND");
  });

  browserTest("an income-tax return is signed by the key that its hash names", async (t) => {
    // The program reads the hash as the key's name, and what it decodes to as Base64 once more.
    const digest = Buffer.alloc(33, "digest-").toString("base64");
    const hash = Buffer.from(digest).toString("base64");
    await rig.useFakeToken(t, { certificates: [{ certificate: rig.certificate, id: Buffer.from(hash) }] });
    const page = await allowedPage(t);
    const request = ask(page, "signItReturn", [hash, "ABCDE1234F"]);
    await rig.user.chooseAndLogIn(request);
    const signed = await check(rig.world.judges.recover(bytes((await request).value), rig.certificate.pem));
    assert.equal(signed.subarray(-33).toString(), bytes(digest).toString());
  });

  browserTest("a token's failure is TOKEN_ERROR with its PKCS#11 name, a pulled one TOKEN_MISSING, and the program starts anew", async (t) => {
    const failing = (rv, nth) => ({ call: "C_Sign", rv, nth });
    await rig.useFakeToken(t, {
      certificates: [{ certificate: rig.certificate, id: "01" }],
      faults: [failing(ck.CKR_GENERAL_ERROR, 1)],
    });
    const page = await allowedPage(t);
    const request = ask(page, "signAuthToken", ["token"]);
    await rig.user.chooseAndLogIn(request);
    const { code, ckr } = await request;
    assert.deepEqual([code, ckr], ["TOKEN_ERROR", "CKR_GENERAL_ERROR"]);
    await rig.programGone();

    await rig.useFakeToken(t, {
      certificates: [{ certificate: rig.certificate, id: "01" }],
      faults: [failing(ck.CKR_DEVICE_REMOVED, 1)],
    });
    const pulled = ask(page, "signAuthToken", ["token"]);
    await rig.user.chooseAndLogIn(pulled);
    assert.equal(codeOf(await pulled), "TOKEN_MISSING");
  });

  browserTest("a program that is killed in the middle is HOST_EXITED, and the next request starts it anew", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    const [program] = await rig.programs();
    process.kill(program, "SIGKILL");
    assert.equal(codeOf(await request), "HOST_EXITED");
    const again = ask(page, "selectCertificate");
    await rig.user.choose(again);
    assert.equal((await again).value.CertThumbPrint, rig.thumbprint);
    assert.notDeepEqual(await rig.programs(), [program]);
  });

  browserTest("an abort closes the program's window, and the next request is served by a new program", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    const [program] = await rig.programs();
    await page.evaluate(() => window.withdrawal.abort());
    assert.equal(codeOf(await request), "ABORTED");
    await waitFor("the program to end", async () => !(await rig.programs()).includes(program), { timeout: 8_000 });
    const again = ask(page, "selectCertificate");
    await rig.user.choose(again);
    assert.equal((await again).value.CertThumbPrint, rig.thumbprint);
  });

  browserTest("the end of the user's time is TIMEOUT, and closes the program's window", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate", [], { timeout: 2_500 });
    await rig.user.certificateWindow();
    assert.equal(codeOf(await request), "TIMEOUT");
    await rig.programGone({ timeout: 8_000 });
    assert.equal(await rig.user.seesAWindow(), false);
  });

  browserTest("a page that is closed takes the program with it", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    request.catch(() => {});
    await rig.user.certificateWindow();
    await page.close();
    await rig.programGone({ timeout: 8_000 });
  });

  browserTest("two tabs are served in turn by one program, and each gets its own answers", async (t) => {
    const pages = [await allowedPage(t), await allowedPage(t)];
    const texts = ["first tab", "second tab", "first tab again", "second tab again"];
    const requests = texts.map((text, i) => ask(pages[i % 2], "signAuthToken", [text]));
    const all = Promise.all(requests);
    await rig.user.chooseAndLogIn(all);
    await rig.user.choose(all);
    for (const [i, request] of requests.entries()) {
      await check(rig.world.judges.rsa(bytes((await request).value), Buffer.from(texts[i]), rig.certificate.pem));
    }
    assert.equal((await rig.programs()).length, 1);
    const waited = (await Promise.all(pages.map((page) => page.evaluate(() => window.progress)))).flat();
    assert.ok(waited.some((state) => state > 0), `told to wait: ${waited}`);
    // One tab still uses the program when the other is closed.
    await pages[0].close();
    await sleep(500);
    assert.equal((await rig.programs()).length, 1);
  });

  const reply = (status, result, nonce = 'request["nonce"]') => `{"status_cd": ${status}, "result": ${result}, "nonce": ${nonce}}`;
  for (const [what, answer, code] of [
    ["an unknown request", reply(0, '"QMHost Error: echo: "'), "UNKNOWN_ACTION"],
    ["a signature that it does not offer", reply(0, '"QMHost Error: Not Implimented."'), "NOT_IMPLEMENTED"],
    ["another request's reply", reply(1, '"QUJD"', '"another"'), "BAD_REPLY"],
    ["a failure that nobody knows", reply(0, '"QMHost Error: std::bad_alloc"'), "BAD_REPLY"],
    ["a reply longer than the browser's 1 MiB", reply(1, '"A" * 1100000'), "HOST_EXITED"],
    // Chromium tells nobody, so the time limit has to; Firefox tells it like a program that cannot be started.
    ["no JSON", '"no JSON"', name === "chromium" ? "TIMEOUT" : "HOST_MISSING"],
  ]) {
    browserTest(`a program that answers ${what} is ${code}`, async (t) => {
      const page = await allowedPage(t);
      await rig.useBrokenProgram(t, answer);
      assert.equal(codeOf(await ask(page, "signAuthToken", ["token"], { timeout: 6_000 })), code);
    });
  }

  // ---- the example page

  browserTest("the example page shows the certificate, signs a text, and saves a signed PDF document of the user's own", async (t) => {
    const own = join(await rig.world.cleanupOf(t).folder("own"), "contract.pdf");
    const page = await allowedPage(t, { path: "/index.html" });
    await page.waitForFunction(() => document.querySelector("#status").textContent.includes("is ready"));
    const outcome = async (id) => {
      const line = await page.waitForSelector(`[data-for="${id}"]:not(:empty)`);
      return line.evaluate((element) => element.textContent);
    };
    const saved = (id) => page.$eval(`[data-for="${id}"] a`, async (link) => {
      const content = new Uint8Array(await (await fetch(link.href)).arrayBuffer());
      return { name: link.download, value: btoa(Array.from(content, (byte) => String.fromCharCode(byte)).join("")) };
    });

    await page.click("#choose");
    const choice = outcome("choose");
    await rig.user.choose(choice);
    assert.match(await choice, /is chosen/);
    assert.equal(await page.$eval("#thumbprint", (element) => element.textContent), rig.thumbprint);

    await page.click("#sign-text");
    const signature = outcome("sign-text");
    await rig.user.chooseAndLogIn(signature);
    assert.match(await signature, /is signed/);
    const text = await page.$eval("#text", (element) => element.value);
    assert.equal((await check(rig.world.judges.cms(bytes((await saved("sign-text")).value)))).toString(), text);

    const document = await PDFDocument.create();
    document.addPage().drawText("The user's own contract");
    await writeFile(own, await document.save());
    await (await page.$("#pdf")).uploadFile(own);
    await page.click("#sign-pdf");
    assert.match(await outcome("sign-pdf"), /is signed/);
    const pdf = await saved("sign-pdf");
    assert.equal(pdf.name, "contract-signed.pdf");
    await pdfIsValid(pdf);
    await page.bringToFront();
    await rig.screenshot("example");

    await page.click("#sign-text");
    const cancelled = outcome("sign-text");
    await rig.user.cancel(cancelled);
    assert.match(await cancelled, /USER_CANCELLED/);
    await rig.screenshot("example-error");
  });

  // ---- registration, and the browser's end; what follows changes what the tests above need

  browserTest("a program that is registered for another extension is refused", async (t) => {
    const manifest = rig.manifest;
    const original = await readFile(manifest, "utf8");
    t.after(() => writeFile(manifest, original));
    await writeFile(manifest, original.replace(/benpbcl/, "aaaaaaa").replace(/extension@/, "another@"));
    const page = await allowedPage(t);
    const expected = name === "chromium" ? "HOST_FORBIDDEN" : "HOST_MISSING"; // Firefox does not tell them apart
    assert.equal(codeOf(await ask(page, "selectCertificate")), expected);
  });

  browserTest("a program that is missing from its place, or ends at once, is told", async (t) => {
    const page = await allowedPage(t);
    const program = join(rig.installed, "QMChromeExtHost");
    await rename(program, `${program}-away`);
    t.after(() => rename(`${program}-away`, program));
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_EXITED"); // the launcher starts, and ends
    const launcher = join(rig.installed, "quillmark-host");
    await rename(launcher, `${launcher}-away`);
    t.after(() => rename(`${launcher}-away`, launcher));
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_MISSING");
  });

  browserTest("a browser that is killed takes the program with it within 3 seconds, with its window open once that is answered", async (t) => {
    const page = await allowedPage(t);
    assert.equal((await ask(page, "status", [], { checkHost: true })).value.host, "running");
    rig.browser.process().kill("SIGKILL");
    await rig.programGone({ timeout: 3_000 });
    await rig.startBrowser();

    const request = ask(await allowedPage(t), "selectCertificate");
    request.catch(() => {});
    await rig.user.certificateWindow();
    rig.browser.process().kill("SIGKILL");
    await rig.user.cancel(rig.programGone());
    await rig.startBrowser();
  });

  browserTest("without a registration the program is HOST_MISSING, also after an uninstall", async (t) => {
    const page = await allowedPage(t);
    await rm(rig.manifest);
    assert.equal(codeOf(await ask(page, "selectCertificate")), "HOST_MISSING");
    assert.equal(codeOf(await ask(page, "status", [], { checkHost: true })), "HOST_MISSING");
    await rig.install();
    const request = ask(page, "selectCertificate");
    await rig.user.choose(request);
    assert.equal((await request).value.CertThumbPrint, rig.thumbprint);
    await page.close();
    await rig.programGone();
    await rig.install("--uninstall");
    assert.equal(codeOf(await ask(await allowedPage(t), "selectCertificate")), "HOST_MISSING");
  });
}
