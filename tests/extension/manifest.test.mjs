// The manifests, the registration and the declarations fit each other.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

import { make, manifest } from "../../extension/make.mjs";
import * as library from "../../extension/quillmark.js";
import { DOCTOR_NAME } from "../../extension/doctor/doctor.js";
import { HOST_NAME } from "../../extension/src/host.js";

const root = fileURLToPath(new URL("../../", import.meta.url));
const read = (path) => readFileSync(join(root, path), "utf8");
const registration = JSON.parse(read("packaging/registration.json"));

test("The registration has the programs' names and the ids of both manifests", async () => {
  assert.deepEqual(registration.hosts.map(({ name }) => name), [HOST_NAME, DOCTOR_NAME]);
  const { key } = await manifest("chromium");
  // Chromium's id is the start of the key's SHA-256, written with the letters a to p.
  const id = createHash("sha256").update(Buffer.from(key, "base64")).digest("hex").slice(0, 32)
    .replace(/./g, (digit) => "abcdefghijklmnop"[Number.parseInt(digit, 16)]);
  assert.ok(registration.chromiumExtensions.includes(id), id);
  const { gecko } = (await manifest("firefox")).browser_specific_settings;
  assert.ok(registration.firefoxExtensions.includes(gecko.id));
});

test("Both manifests ask for the same, and for no more than they need; only Chromium tells of a locked screen", async () => {
  const [chromium, firefox] = [await manifest("chromium"), await manifest("firefox")];
  assert.deepEqual(firefox.permissions, ["nativeMessaging", "storage"]);
  assert.deepEqual(chromium.permissions, [...firefox.permissions, "idle"]);
  assert.deepEqual(chromium.content_scripts, firefox.content_scripts);
  for (const each of [chromium, firefox]) {
    for (const name of ["host_permissions", "externally_connectable", "web_accessible_resources"]) assert.ok(!(name in each), name);
  }
});

test("Every file that the manifests and pages name is in the folders that are made", async () => {
  const folder = mkdtempSync(join(tmpdir(), "quillmark-extension-"));
  try {
    await make(folder);
    for (const browser of ["chromium", "firefox"]) {
      const made = await manifest(browser);
      const named = [
        ...Object.values(made.icons), ...made.content_scripts[0].js, made.options_ui.page, "consent/consent.html",
        made.action.default_popup, `_locales/${made.default_locale}/messages.json`,
        made.background.service_worker ?? made.background.scripts[0], ...(made.storage ? [made.storage.managed_schema] : []),
      ];
      for (const path of named) assert.ok(existsSync(join(folder, browser, path)), `${browser}/${path}`);
      for (const page of ["consent/consent.html", "options/options.html", "popup/popup.html", "viewer/viewer.html", "viewer/gone.html"]) {
        const html = readFileSync(join(folder, browser, page), "utf8");
        for (const [, path] of html.matchAll(/(?:src|href)="([^"]+)"/g)) {
          assert.ok(existsSync(join(folder, browser, page, "..", path)), `${page}: ${path}`);
        }
      }
    }
    for (const name of ["index.html", "quillmark.js", "pdf-lib.js"]) assert.ok(existsSync(join(folder, "example", name)), name);
  } finally {
    rmSync(folder, { recursive: true });
  }
});

test("The declarations name what the page library exports, and pages that use them type-check", () => {
  const folder = mkdtempSync(join(tmpdir(), "quillmark-types-"));
  try {
    const declared = [...read("extension/quillmark.d.ts").matchAll(/^export (?:function|const|class) (\w+)/gm)].map(([, name]) => name);
    assert.deepEqual(declared.sort(), Object.keys(library).sort());

    for (const name of ["quillmark.js", "quillmark.d.ts"]) writeFileSync(join(folder, name), read(`extension/${name}`));
    writeFileSync(join(folder, "page.ts"), `
      import { selectCertificate, signPdf, signPdfs, signPdfHash, suitableDigest, QuillmarkError, type Certificate } from "./quillmark.js";
      const certificate: Certificate = await selectCertificate({ signal: AbortSignal.timeout(1), onProgress: (p) => p.state });
      const digest = await suitableDigest((attempt: number) => new Uint8Array([attempt]));
      const made: Uint8Array = digest.bytes;
      const pkcs7: string = await signPdfHash(digest.hash, certificate.CertThumbPrint, { hashAlgorithm: digest.hashAlgorithm });
      try { await signPdfHash(made, "") } catch (error) { if (error instanceof QuillmarkError && error.code === "TIMEOUT") throw error }
      const signed: Uint8Array = await signPdf(made, { reason: "", visible: { x: 1, y: 1, width: 100, height: 40 }, chain: [made] });
      const [outcome] = await signPdfs([{ document: new Blob([]) }], { timestamp: async (digest: Uint8Array) => digest, onResult: () => {} });
      if (outcome?.status === "rejected") throw outcome.reason;
      // @ts-expect-error a place has a size
      await signPdf(signed, { visible: { x: 1, y: 1 } });
      // @ts-expect-error there is no such algorithm
      await signPdfHash(pkcs7, "", { hashAlgorithm: "SHA-1" });
      export {};
    `);
    execFileSync(process.execPath, [
      join(root, "node_modules/typescript/bin/tsc"), "--noEmit", "--strict", "--target", "es2022", "--module", "esnext",
      "--moduleResolution", "bundler", "--lib", "es2022,dom", join(folder, "page.ts"),
    ], { encoding: "utf8" });
  } catch (error) {
    assert.fail(error.stdout || error);
  } finally {
    rmSync(folder, { recursive: true });
  }
});
