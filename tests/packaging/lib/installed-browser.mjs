// A signature in a browser that has the extension from the Debian package, and a home that has nothing of ours.

import {
  ask, BINARY_ID, BrowserUser, bytesOf, ExtensionPages, GST_TEXT, PAGE, ready, serve, SoftToken, startBrowser, statusOf, waitFor,
} from "../../lib/browser-kit.mjs";
import { product } from "../../lib/quillmark.mjs";

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
