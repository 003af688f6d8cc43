// Browsers that have the extension from the Debian package, or from an administrator, and a home that has nothing of ours.

import { mkdir, readFile, rm, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";

import {
  ask, BINARY_ID, BrowserUser, bytesOf, CHROMIUM_POLICY, ExtensionPages, GST_TEXT, PAGE, ready, serve, SoftToken, startBrowser, statusOf, waitFor,
} from "../../lib/browser-kit.mjs";
import { run } from "../../lib/kit.mjs";
import { product, root } from "../../lib/quillmark.mjs";

/** What the package brings for pages: the page library, and an example that uses it. */
const EXAMPLE = "/usr/share/quillmark/example";

/** The text that came out of a signature, by OpenSSL; what was signed is GST_TEXT. The user allows, chooses and logs in. */
export async function signatureIn(name, t, world) {
  const cleanup = world.cleanupOf(t);
  const home = await cleanup.folder(`home-${name}`);
  const token = await SoftToken.create(home);
  await token.addPair(await world.certificate(), BINARY_ID);
  const site = await serve(EXAMPLE, { pages: { "/": PAGE } });
  cleanup.add(site.close);
  const origin = `http://localhost:${site.port}`;

  const env = { ...world.desktop.env, ...token.env, XDG_DATA_HOME: "" };
  const browser = await startBrowser(name, { home, ids: product.extension.ids, env });
  cleanup.add(() => browser.close());
  const user = new BrowserUser(world.desktop, name);
  user.extension = new ExtensionPages(name, browser);
  const page = await browser.newPage();
  await waitFor("the extension", async () => {
    await page.goto(`${origin}/`);
    return (await statusOf(await ready(page)))?.permission === "ask";
  }, { interval: 500 });

  const request = ask(page, "signGstReturn", [GST_TEXT]);
  await user.consent(origin, "once");
  await user.chooseAndLogIn(request);
  const { value, ...failure } = await request;
  if (!value) throw new Error(`${name}: ${JSON.stringify(failure)}`);
  const text = (await world.judges.cms(bytesOf(value))).toString();
  await browser.close();
  return text;
}

/** Packs the extension with a new key, and has an administrator's policy force it. Gives the version that Chromium then has enabled. */
export async function forcedVersion(t, world) {
  const cleanup = world.cleanupOf(t);
  const [home, served] = [await cleanup.folder("home-forced"), await cleanup.folder("packed")];
  const site = await serve(served);
  cleanup.add(site.close);
  const key = join(home, "key.pem");
  await run("openssl", ["genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048", "-out", key]);
  await product.extension.make(join(root, "build/extension"));
  await run(join(root, "packaging/pack-extension"), [key, `http://localhost:${site.port}`, served]);
  const policy = await readFile(join(served, "chromium-policy.json"), "utf8");
  const [id] = Object.keys(JSON.parse(policy).ExtensionSettings);

  await mkdir(dirname(CHROMIUM_POLICY), { recursive: true });
  cleanup.add(() => rm(CHROMIUM_POLICY, { force: true }));
  await writeFile(CHROMIUM_POLICY, policy);
  const browser = await startBrowser("chromium", { home, ids: { ...product.extension.ids, chromium: id }, env: world.desktop.env });
  cleanup.add(() => browser.close());
  // No debugger sees into an extension that a policy forces; the browser's own page tells of it.
  const page = await browser.newPage();
  await page.goto("chrome://extensions");
  const enabled = () => page.evaluate(async () => {
    const all = await new Promise((resolve) => chrome.developerPrivate.getExtensionsInfo({}, resolve));
    return all.map(({ id, state, version }) => (state === "ENABLED" ? [id, version] : []));
  });
  const [, version] = await waitFor("the extension", async () => (await enabled()).find(([each]) => each === id), { interval: 500 });
  return version;
}
