// A page of a site that uses the page library, and what the tests have it do.

/** `ask` turns what an operation comes to into a value for the tests. */
export const PAGE = `<!doctype html><meta charset="utf-8"><title>Test page</title><link rel="icon" href="data:,">
<script type="module">
  import * as library from "./quillmark.js";
  import { prepareSignature, sampleDocument } from "./pdf-signing.js";
  window.progress = [];
  window.ask = async (operation, args, options = {}) => {
    window.withdrawal = new AbortController();
    const onProgress = ({ state, ahead }) => progress.push(state === "waiting" ? ahead : state);
    try {
      return { value: await library[operation](...args, { signal: withdrawal.signal, onProgress, ...options }) };
    } catch ({ code, message, detail, ckr }) {
      return { code, message, detail, ckr };
    }
  };
  window.signPdf = async (name, thumbprint) => {
    const pdf = await sampleDocument([name]);
    let prepared;
    const makeBytes = async () => (prepared = await prepareSignature(pdf, { reason: name })).covered;
    const { hash, hashAlgorithm } = await library.suitableDigest(makeBytes);
    const { value, ...failure } = await ask("signPdfHash", [hash, thumbprint], { hashAlgorithm });
    if (!value) return failure;
    return { value: btoa(Array.from(prepared.insert(value), (byte) => String.fromCharCode(byte)).join("")), hashAlgorithm };
  };
</script><p id="gesture">A harmless place to click</p>`;

/** HTML of a frame that shows the usual page of another origin. */
export const framing = (origin) => `<iframe src="${origin}/"></iframe>`;

export const GST_TEXT = JSON.stringify({ gstin: "33ABCDE1234F1Z5", note: "₹ 1,25,000 – నమస్తే", lines: "a\nb" });
export const DIGEST = Buffer.alloc(32, 0x5a).toString("base64");

/** Waits until the page library is loaded in the page or frame; gives it back. */
export async function ready(page) {
  await page.waitForFunction("window.ask");
  return page;
}

/** Clicks in the page or frame, at a place where a click does nothing. */
export async function gesture(page) {
  const top = "page" in page ? page.page() : page;
  await top.bringToFront();
  if (top === page) return page.click("#gesture");
  const { x, y } = await middleOf(page);
  return top.mouse.click(x, y);
}

// In the whole page. Firefox before 153 does not tell where a frame is.
async function middleOf(frame) {
  const places = [await frame.evaluate(() => {
    const { x, y, width, height } = document.getElementById("gesture").getBoundingClientRect();
    return { x: x + width / 2, y: y + height / 2 };
  })];
  for (let inner = frame, outer; (outer = inner.parentFrame()); inner = outer) {
    const index = outer.childFrames().indexOf(inner);
    places.push(await outer.evaluate((i) => {
      const element = document.querySelectorAll("iframe")[i];
      const { x, y } = element.getBoundingClientRect();
      return { x: x + element.clientLeft, y: y + element.clientTop };
    }, index));
  }
  return { x: places.reduce((sum, place) => sum + place.x, 0), y: places.reduce((sum, place) => sum + place.y, 0) };
}

/** Calls an operation of the page library in a page or frame: { value } or { code, message, detail, ckr }. */
export const askWithoutGesture = (page, operation, args = [], options = {}) =>
  page.evaluate((...given) => window.ask(...given), operation, args, options);

/** The same after a click of the user in the page: without one, a page may not have the user asked. */
export async function ask(page, ...call) {
  await gesture(page);
  return askWithoutGesture(page, ...call);
}

/** Has the page take its last request back. */
export const withdraw = (page) => page.evaluate(() => window.withdrawal.abort());

/** What the extension tells the page or frame of itself. */
export const statusOf = async (page) => (await askWithoutGesture(page, "status")).value;

/** Has a page make a PDF document of this name and sign it: { value, hashAlgorithm } or a failure. */
export const signPdf = (page, name, thumbprint) =>
  page.evaluate((...given) => window.signPdf(...given), name, thumbprint);

/** The code of what `ask` gave; words that are no code when it gave a value. */
export const codeOf = ({ code, value }) => code ?? `no error, but ${JSON.stringify(value)?.slice(0, 80)}`;
