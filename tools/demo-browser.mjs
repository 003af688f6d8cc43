// The whole job in a browser, as `./demo --browser` shows it: node tools/demo-browser.mjs [chromium | firefox] [--auto]
//
// The host is installed into a home of its own under build/, the browser runs with that home, and the example page is
// open. A person does the rest; with --auto, or without a display, the page's PDF document is signed by itself.

import { mkdir, rm, writeFile } from "node:fs/promises";
import { homedir } from "node:os";
import { join, relative } from "node:path";

import { PDFDocument } from "pdf-lib";

import {
  Authority, BINARY_ID, BrowserUser, bytesOf, Cleanup, Desktop, ExtensionPages, Judges, run, serve, sleep, SoftToken, startBrowser,
} from "../tests/lib/browser-kit.mjs";
import { bin, product, root } from "../tests/lib/quillmark.mjs";
import { runDemo, step } from "./demo-steps.mjs";

const PIN = "1234";
const OWNER = "Asha Rao";
const cleanup = new Cleanup();

async function main() {
  const name = process.argv.includes("firefox") ? "firefox" : "chromium";
  const folder = join(root, "build", `demo-${name}`);
  const home = join(folder, "home");
  await rm(folder, { recursive: true, force: true });
  await mkdir(home, { recursive: true });

  const { token, judges } = await makeToken(folder, home);
  await run(product.install, ["--from", bin], { env: { ...process.env, ...token.env } });
  step(`The signing program is installed in ${relative(".", home)} and registered with the browsers there`);

  const extensions = join(folder, "extension");
  await product.extension.make(extensions);
  const site = await serve(join(extensions, "example"));
  cleanup.add(site.close);

  const isAuto = process.argv.includes("--auto") || !(process.env.DISPLAY || process.env.WAYLAND_DISPLAY);
  const desktop = isAuto ? await Desktop.start(cleanup) : null;
  // The display's owner is found in the user's own home, which is not the browser's.
  const displayEnv = desktop?.env ?? { XAUTHORITY: process.env.XAUTHORITY ?? join(homedir(), ".Xauthority") };
  const browser = await startBrowser(name, {
    home, extension: join(extensions, name), ids: product.extension.ids, env: { ...displayEnv, ...token.env },
  });
  cleanup.add(() => browser.close().catch(() => {}));
  const page = (await browser.pages())[0] ?? (await browser.newPage());
  const address = `http://localhost:${site.port}`;
  await page.goto(`${address}/`);
  step(`${name === "firefox" ? "Firefox" : "Chromium"} shows the example page, ${address}`);

  if (isAuto) await signByItself({ name, browser, page, address, desktop, folder, judges });
  else await letThePersonSign(browser, home);
}

async function makeToken(folder, home) {
  const token = await SoftToken.create(home, { pin: PIN, label: "Quillmark demo" });
  const authority = await Authority.create(folder, { subject: "/C=IN/O=Quillmark Demo/CN=Quillmark Demo CA" });
  const owner = { cn: OWNER, organisation: "Quillmark Demo", email: "asha@example.in" };
  await token.addPair(await authority.issue("user", owner), BINARY_ID);
  step(`A token is made, with a certificate of ${OWNER}; its PIN is ${PIN}`);
  return { token, judges: new Judges(folder, authority.certificate) };
}

async function letThePersonSign(browser, home) {
  console.log(`  Choose a PDF document, look at it in the extension's window, and sign it; the PIN is ${PIN}.`);
  console.log(`  What you save lies in ${relative(".", join(home, "Downloads"))}. The demo ends with the browser.`);
  await new Promise((resolve) => browser.once("disconnected", resolve));
  step("The browser is closed");
}

async function signByItself({ name, browser, page, address, desktop, folder, judges }) {
  const user = new BrowserUser(desktop, name);
  user.extension = new ExtensionPages(name, browser);
  const picture = (what) => desktop.screenshot(join(folder, `${what}.png`));

  const contract = join(folder, "contract.pdf");
  const document = await PDFDocument.create();
  document.addPage([595, 842]).drawText("A contract", { x: 60, y: 760, size: 14 });
  await writeFile(contract, await document.save());
  await (await page.$("#files")).uploadFile(contract);
  await page.click("#sign");
  const saved = page.waitForSelector("#outcomes a", { timeout: 120_000 });
  saved.catch(() => {});
  await user.documentsWindow(address);
  await picture("document");
  await user.answerDocuments(address, "sign");
  await user.certificateWindow();
  await sleep(2_000); // for the picture: the cards are drawn
  await picture("certificate-window");
  await user.chooseUntilPin(saved);
  await user.pinWindow();
  await picture("pin");
  await user.typePin(PIN);

  const signed = await (await saved).evaluate(async ({ href }) => {
    const bytes = new Uint8Array(await (await fetch(href)).arrayBuffer());
    return btoa(Array.from(bytes, (byte) => String.fromCharCode(byte)).join(""));
  });
  await picture("example-page");
  const file = join(folder, "signed.pdf");
  await writeFile(file, bytesOf(signed));
  await judges.pdf(bytesOf(signed));
  step(`PDF signed: pdfsig says that the signature is valid (${relative(".", file)})`);
}

await runDemo(main, cleanup);
