// docs/recipes: the page's side and the server's side of each recipe run as they stand, with the real host; and so do those who
// verify without this project's code.

import assert from "node:assert/strict";
import { readFile, symlink, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { before, test } from "node:test";
import { pathToFileURL } from "node:url";

import { PDFDocument } from "pdf-lib";

import { runUnchecked, World } from "../lib/kit.mjs";
import { product, root } from "../lib/quillmark.mjs";
import { Page } from "../packages/lib/page.mjs";
import { blocksOf } from "./lib/blocks.mjs";

const world = World.forThisFile(product);
const signer = () => world.certificate("Asha Rao", { email: "asha@example.com" });

/** What the signer's certificate names. */
const REVOCATION_LIST = "http://crl.example/ca.crl";

/** How a block that verifies is run, by its language: the file that it is put into, and the command. */
const RUNNERS = {
  sh: ["verify.sh", "bash", ["-eu", "-o", "pipefail"]],
  python: ["verify.py", "/usr/bin/python3", []],
  java: ["Verify.java", "java", []],
};

/** Of each recipe: the page's function, what the server answers, and the files that are verified, of what was sent by its path. */
const RECIPES = {
  "log-in": {
    call: "logIn",
    answer: "Welcome, Asha Rao",
    files: async ({ login }) => {
      const { challenge, signature } = JSON.parse(login);
      return { challenge, signature: Buffer.from(signature, "base64"), "certificate.pem": await readFile((await signer()).pem) };
    },
    spoil: { challenge: (text) => `${text} ` },
  },
  "sign-a-pdf": {
    call: "signContract",
    answer: "Signed by Asha Rao",
    files: ({ signed }) => ({ "signed.pdf": signed }),
    spoil: { "signed.pdf": (pdf) => Buffer.from(pdf.toString("latin1").replace("/MediaBox", "/MediaBux"), "latin1") },
  },
  "sign-a-return": {
    call: "file",
    answer: "Asha Rao has filed 125000.00",
    files: ({ filed }) => ({ "signed.p7m": Buffer.from(filed, "base64") }),
    spoil: { "signed.p7m": (cms) => Buffer.from(cms.toString("latin1").replace("125000", "925000"), "latin1") },
  },
  "sign-json": {
    call: "order",
    answer: "Asha Rao orders Tea for 1250",
    files: ({ ordered }) => ({ "order.jws": ordered }),
    spoil: { "order.jws": (jws) => jws.replace(/\..*\./, `.${Buffer.from('{"item":"Tea","amount":1}').toString("base64url")}.`) },
  },
};

before(async () => {
  await Page.load(world);
  await symlink(join(root, "packages/quillmark-verify"), join(world.folder, "node_modules/quillmark-verify"));
  await put({ "roots.pem": await readFile(world.authority.certificate), "contract.pdf": await contract() });
  process.chdir(world.folder);
});

async function contract() {
  const document = await PDFDocument.create();
  document.addPage().drawText("A contract");
  return document.save();
}

for (const [name, { call, answer, files, spoil }] of Object.entries(RECIPES)) {
  const blocks = await blocksOf(`docs/recipes/${name}.md`);
  const verifying = blocks.flatMap((block, i) => (block.info.endsWith(" verify") ? [{ ...block, output: blocks[i + 1].content }] : []));

  test(`${name}: the page signs, the server accepts, and so do others`, async (t) => {
    await Page.open(t, world, { pairs: [[await signer(), "a1b2c3"]] });
    const [page, server] = await Promise.all(["page", "server"].map((side) => load(name, side, blocks)));
    const sent = {};
    useServer(t, server, sent, await world.authority.revocationList());
    assert.equal(await page[call](), answer);

    assert.ok(verifying.length > 0);
    const good = await files(sent);
    for (const { language, content, output } of verifying) {
      await put(good);
      assert.equal(await outputOf(language, content), output, language);
      for (const [file, change] of Object.entries(spoil)) await put({ [file]: change(good[file]) });
      assert.notEqual(await outputOf(language, content), output, `${language}, of what was changed`);
    }
  });
}

/** Loads the block of that side as the module that it is. */
async function load(name, side, blocks) {
  const [{ content }] = blocks.filter(({ info }) => info === `js ${side}`);
  const file = join(world.folder, `${name}-${side}.mjs`);
  await writeFile(file, content);
  return import(pathToFileURL(file));
}

/** Has `fetch` lead to the server's functions, each at the path of its name, and to the files; keeps what is sent. */
function useServer(t, server, sent, revocationList) {
  const real = globalThis.fetch;
  t.after(() => (globalThis.fetch = real));
  globalThis.fetch = async (address, { body } = {}) => {
    if (address === REVOCATION_LIST) return new Response(revocationList);
    const path = address.slice(1);
    if (path.includes(".")) return new Response(await readFile(join(world.folder, path)));
    sent[path] = body instanceof Uint8Array ? Buffer.from(body) : body;
    return new Response(await server[path](sent[path]));
  };
}

const put = (files) => Promise.all(Object.entries(files).map(([name, content]) => writeFile(join(world.folder, name), content)));

async function outputOf(language, content) {
  const [file, command, options] = RUNNERS[language];
  await put({ [file]: content });
  const { stdout, stderr } = await runUnchecked(command, [...options, file], { cwd: world.folder });
  return `${stdout}${stderr}`;
}
