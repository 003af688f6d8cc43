// The package as others get it: packed, installed into an empty folder, with its types and the examples of its README.

import assert from "node:assert/strict";
import { mkdir, readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { after, before, test } from "node:test";

import { ERRORS } from "quillmark-verify";

import { blocksOf } from "../docs/lib/blocks.mjs";
import { run } from "../lib/kit.mjs";
import { root as tree } from "../lib/quillmark.mjs";
import { addresses, authority, certificate, crl, personal } from "./lib/issuing.mjs";
import { pack } from "./lib/packed.mjs";
import { scratch } from "./lib/scratch.mjs";
import { gstReturn, signedPdf } from "./lib/signing.mjs";

const README = "packages/quillmark-verify/README.md";
const { folder } = await scratch({ after });

before(async () => {
  const tarball = await pack("quillmark-verify", folder);
  await mkdir(join(folder, "app"));
  await writeFile(join(folder, "app/package.json"), '{ "type": "module" }');
  await run("npm", ["install", "--prefer-offline", "--no-audit", "--no-fund", tarball], {
    cwd: join(folder, "app"),
    timeout: 120_000,
  });
});

const inApp = (...parts) => join(folder, "app", ...parts);

test("The package has its code, its types, the example and the README, and nothing else", async () => {
  const { stdout } = await run("find", [inApp("node_modules/quillmark-verify"), "-type", "f", "-printf", "%P\\n"]);
  const files = stdout.toString().trim().split("\n");
  const isMeant = (file) => /^(src\/[a-z-]+\.js|example\/[a-z.]+|index\.d\.ts|README\.md|package\.json)$/.test(file);
  assert.deepEqual(
    files.filter((file) => !isMeant(file)),
    [],
  );
  for (const file of ["src/index.js", "example/server.mjs", "index.d.ts", "README.md"]) assert.ok(files.includes(file), file);
});

test("The types describe the functions, each of them and no other", async () => {
  const types = await readFile(inApp("node_modules/quillmark-verify/index.d.ts"), "utf8");
  const exported = (
    await run("node", ["-e", 'import("quillmark-verify").then((all) => console.log(Object.keys(all).sort().join()))'], {
      cwd: inApp(),
    })
  ).stdout
    .toString()
    .trim();
  const described = [...types.matchAll(/^export (?:function|const|class) (\w+)/gm)]
    .map(([, name]) => name)
    .sort()
    .join();
  assert.equal(described, exported);
  const codes = [...types.slice(types.indexOf("ErrorCode"), types.indexOf(";")).matchAll(/"(\w+)"/g)].map(([, code]) => code);
  assert.deepEqual(codes, Object.keys(ERRORS));
});

test("A program in TypeScript that uses it compiles, and one that uses it wrongly does not", async () => {
  await writeFile(inApp("program.ts"), PROGRAM);
  const options = ["--noEmit", "--strict", "--target", "es2022", "--module", "nodenext", "--lib", "es2022,dom"];
  await run(join(tree, "node_modules/.bin/tsc"), [...options, inApp("program.ts")], { timeout: 300_000 });
});

test("The README's table of codes is complete", async () => {
  const named = [...(await readFile(join(tree, README), "utf8")).matchAll(/^\| `([A-Z_]+)` \|/gm)].map(([, code]) => code);
  assert.deepEqual(named, Object.keys(ERRORS));
});

test("The README's examples run as they stand", async () => {
  const root = authority("Root");
  const asha = certificate("Asha Rao", {
    issuer: root,
    extensions: personal({ more: addresses({ crl: ["http://crl.example/ca"] }) }),
  });
  const given = {
    key: asha.privateKey.export({ type: "pkcs8", format: "pem" }),
    certificate: asha.der.toString("base64"),
    roots: root.pem,
    timestampRoots: root.pem,
    crl: crl(root).toString("base64"),
    cms: gstReturn(asha, '{"gstin": "33ABCDE1234F1Z5"}').toString("base64"),
    pdf: signedPdf(asha).toString("base64"),
  };
  await writeFile(inApp("given.json"), JSON.stringify(given));
  await writeFile(inApp("prelude.mjs"), PRELUDE);
  const examples = (await blocksOf(README)).filter(({ info }) => info === "js example");
  const printed = [];
  for (const [i, { content }] of examples.entries()) {
    await writeFile(
      inApp(`example-${i}.mjs`),
      `import { answerOfPage, cms, fetch, jws, pdf, roots, timestampRoots } from "./prelude.mjs";\n${content}`,
    );
    printed.push((await run("node", [inApp(`example-${i}.mjs`)])).stdout.toString().trim());
  }
  assert.match(printed[0], /^Asha Rao [0-9A-F]{64}$/);
  assert.equal(printed[1], "Asha Rao signed 33ABCDE1234F1Z5");
  assert.match(printed[2], /^Asha Rao signed the whole file, by 2\d{3}-/);
  assert.equal(printed[3], "Asha Rao read");
  assert.equal(printed.length, 4);
});

const PROGRAM = `
import { newChallenge, verifyAuthToken, verifyPdf, VerificationError, type ErrorCode } from "quillmark-verify";

const challenge: string = newChallenge({ site: "a" });
const login = { challenge, site: "a", signature: "", certificate: new Uint8Array(), roots: [""] };
const { signer, issuedAt } = await verifyAuthToken({ ...login, fetch });
export const told: [string, Date] = [signer.name, issuedAt];
const { signatures } = await verifyPdf({ pdf: new ArrayBuffer(1), roots: "", revocation: "none" });
export const isTrusted: boolean | undefined = signatures[0]?.timestamp?.trusted;
export const codeOf = (error: unknown): ErrorCode | null => (error instanceof VerificationError ? error.code : null);
// @ts-expect-error: a file is no text
await verifyPdf({ pdf: "text", roots: "" });
// @ts-expect-error: without roots nothing is verified
await verifyPdf({ pdf: new ArrayBuffer(1) });
// @ts-expect-error: a policy that is none
await verifyPdf({ pdf: new ArrayBuffer(1), roots: "", revocation: "maybe" });
`;

/** What the examples have from their surroundings. */
const PRELUDE = `
import { sign } from "node:crypto";
import { readFileSync } from "node:fs";

const given = JSON.parse(readFileSync(new URL("given.json", import.meta.url)));
export const { roots, timestampRoots, cms } = given;
export const pdf = new Uint8Array(Buffer.from(given.pdf, "base64"));
export const fetch = async () => new Response(Buffer.from(given.crl, "base64"));
const signed = (text) => sign("sha256", Buffer.from(text), given.key);
export const answerOfPage = async (challenge) => ({ certificate: given.certificate, signature: signed(challenge).toString("base64") });
const input = [{ alg: "RS256", x5c: [given.certificate] }, { scope: "read" }].map((part) => Buffer.from(JSON.stringify(part)).toString("base64url")).join(".");
export const jws = \`\${input}.\${signed(input).toString("base64url")}\`;
`;
