// What goes wrong between the page and the token, and the code that the page gets for it.

import assert from "node:assert/strict";

import { ask, askWithoutGesture, bytesOf, CK, codeOf, DIGEST, sleep, waitFor, withdraw } from "../../lib/browser-kit.mjs";

export function failureTests({ name, rig, browserTest, check, allowedPage }) {
  browserTest("Cancel is USER_CANCELLED, and the next request shows the window again", async (t) => {
    const page = await allowedPage(t);
    const operations = { selectCertificate: [], signGstReturn: ["text"], signItReturn: ["aGFzaA==", "ABCDE1234F"], signAuthToken: ["token"] };
    for (const [operation, args] of Object.entries(operations)) {
      const outcome = await rig.user.cancel(ask(page, operation, args));
      assert.equal(codeOf(outcome), "USER_CANCELLED", operation);
    }
  });

  browserTest("a wrong PIN and a PIN left empty are LOGIN_FAILED, the right one signs, and is not asked for twice", async (t) => {
    const page = await allowedPage(t);
    for (const pin of ["9999", ""]) {
      const outcome = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]), pin);
      assert.equal(codeOf(outcome), "LOGIN_FAILED");
    }
    const right = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]));
    await check(rig.world.judges.rsa(bytesOf(right.value), Buffer.from("token"), rig.certificate.pem));
    const second = await rig.user.choose(ask(page, "signAuthToken", ["second"]));
    await check(rig.world.judges.rsa(bytesOf(second.value), Buffer.from("second"), rig.certificate.pem));
  });

  browserTest("no token is TOKEN_MISSING, and the token is found once it is there", async (t) => {
    const page = await allowedPage(t);
    await rig.token.pull();
    const missing = await ask(page, "selectCertificate").finally(() => rig.token.plugIn());
    assert.equal(codeOf(missing), "TOKEN_MISSING");
    await page.close();
    await rig.program.gone();
    const again = await rig.user.choose(ask(await allowedPage(t), "selectCertificate"));
    assert.equal(again.value.CertThumbPrint, rig.certificate.thumbprint);
  });

  browserTest("a token that was exchanged is seen after \"Read the tokens again\", which disturbs no request under way", async (t) => {
    const page = await allowedPage(t);
    const choose = async () => (await rig.user.choose(ask(page, "selectCertificate"))).value?.CertThumbPrint;
    assert.equal(await choose(), rig.certificate.thumbprint);
    const running = await rig.program.running();
    const certificate = await rig.world.certificate("exchanged");
    await rig.program.useToken(t, await rig.world.fakeToken({ certificates: [{ certificate, id: "01" }] }));
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    assert.match(await rig.extension.clickInPopup("reread"), /^A request is under way\./);
    assert.equal((await rig.user.choose(request)).value.CertThumbPrint, rig.certificate.thumbprint);
    assert.deepEqual(await rig.program.running(), running);

    assert.match(await rig.extension.clickInPopup("reread"), /^The signing program was ended\. The next request starts it anew/);
    await rig.program.gone();
    assert.equal(await choose(), certificate.thumbprint);
  });

  browserTest("an income-tax return whose hash is no key's name is KEY_NOT_FOUND", async (t) => {
    const page = await allowedPage(t);
    const outcome = await rig.user.chooseAndLogIn(ask(page, "signItReturn", [DIGEST, "ABCDE1234F"]));
    assert.equal(codeOf(outcome), "KEY_NOT_FOUND");
  });

  browserTest("an income-tax return is signed by the key that its hash names", async (t) => {
    // The host reads the hash as the key's name, and what it decodes to as Base64 once more.
    const digest = Buffer.alloc(33, "digest-").toString("base64");
    const hash = Buffer.from(digest).toString("base64");
    await rig.program.useToken(t, await rig.world.fakeToken({ certificates: [{ certificate: rig.certificate, id: Buffer.from(hash) }] }));
    const page = await allowedPage(t);
    const outcome = await rig.user.chooseAndLogIn(ask(page, "signItReturn", [hash, "ABCDE1234F"]));
    const signed = await check(rig.world.judges.recover(bytesOf(outcome.value), rig.certificate.pem));
    assert.equal(signed.subarray(-33).toString(), bytesOf(digest).toString());
  });

  browserTest("a token's failure is TOKEN_ERROR with its PKCS#11 name, a pulled one TOKEN_MISSING, and the host starts anew", async (t) => {
    const failing = (rv, nth) => ({ call: "C_Sign", rv, nth });
    await rig.program.useToken(t, await rig.world.fakeToken({
      certificates: [{ certificate: rig.certificate, id: "01" }],
      faults: [failing(CK.CKR_GENERAL_ERROR, 1)],
    }));
    const page = await allowedPage(t);
    const outcome = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]));
    const { code, ckr } = outcome;
    assert.deepEqual([code, ckr], ["TOKEN_ERROR", "CKR_GENERAL_ERROR"]);
    await rig.program.gone();

    await rig.program.useToken(t, await rig.world.fakeToken({
      certificates: [{ certificate: rig.certificate, id: "01" }],
      faults: [failing(CK.CKR_DEVICE_REMOVED, 1)],
    }));
    const pulled = await rig.user.chooseAndLogIn(ask(page, "signAuthToken", ["token"]));
    assert.equal(codeOf(pulled), "TOKEN_MISSING");
  });

  browserTest("a program that is killed in the middle is HOST_EXITED, and the next request starts it anew", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    const [program] = await rig.program.running();
    process.kill(program, "SIGKILL");
    assert.equal(codeOf(await request), "HOST_EXITED");
    const again = await rig.user.choose(ask(page, "selectCertificate"));
    assert.equal(again.value.CertThumbPrint, rig.certificate.thumbprint);
    assert.notDeepEqual(await rig.program.running(), [program]);
  });

  browserTest("an abort closes the host's window, and the next request is served by a new host", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    await rig.user.certificateWindow();
    const [program] = await rig.program.running();
    await withdraw(page);
    assert.equal(codeOf(await request), "ABORTED");
    await waitFor("the program to end", async () => !(await rig.program.running()).includes(program), { timeout: 8_000 });
    const again = await rig.user.choose(ask(page, "selectCertificate"));
    assert.equal(again.value.CertThumbPrint, rig.certificate.thumbprint);
  });

  browserTest("the end of the user's time is TIMEOUT, and closes the host's window", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate", [], { timeout: 2_500 });
    await rig.user.certificateWindow();
    assert.equal(codeOf(await request), "TIMEOUT");
    await rig.program.gone({ timeout: 8_000 });
    assert.equal(await rig.user.seesAWindow(), false);
  });

  browserTest("a page that is closed takes the host with it", async (t) => {
    const page = await allowedPage(t);
    const request = ask(page, "selectCertificate");
    request.catch(() => {});
    await rig.user.certificateWindow();
    await page.close();
    await rig.program.gone({ timeout: 8_000 });
  });

  browserTest("two tabs are served in turn by one program, and each gets its own answers", async (t) => {
    const pages = [await allowedPage(t), await allowedPage(t)];
    const texts = ["first tab", "second tab", "first tab again", "second tab again"];
    const requests = texts.map((text, i) => askWithoutGesture(pages[i % 2], "signAuthToken", [text]));
    const all = Promise.all(requests);
    await rig.user.chooseUntilPin(all);
    await rig.user.typePin();
    await rig.user.choose(all);
    for (const [i, request] of requests.entries()) {
      await check(rig.world.judges.rsa(bytesOf((await request).value), Buffer.from(texts[i]), rig.certificate.pem));
    }
    assert.equal((await rig.program.running()).length, 1);
    const waited = (await Promise.all(pages.map((page) => page.evaluate(() => window.progress)))).flat();
    assert.ok(waited.some((state) => state > 0), `told to wait: ${waited}`);
    // One tab still uses the host when the other is closed.
    await pages[0].close();
    await sleep(500);
    assert.equal((await rig.program.running()).length, 1);
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
      await rig.program.useBrokenProgram(t, answer);
      assert.equal(codeOf(await ask(page, "signAuthToken", ["token"], { timeout: 6_000 })), code);
    });
  }
}
