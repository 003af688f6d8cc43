// The stranger's own page, and what is tested where Quillmark is not installed.

const from = process.env.QUILLMARK_PRODUCT; // a module of the project's own tests

export const product = from ? (await import(from)).product : undefined;
export const browser = process.env.QUILLMARK_BROWSER;
export const display = process.env.QUILLMARK_DISPLAY;

/** Calls `operation` of the page library for a click on its button; `outcome` is the value or a code. */
export const PAGE = `<!doctype html><title>A shop</title><button>Sign</button> <output>Nothing yet</output><script type="module">
  import * as quillmark from "./quillmark.js";
  window.ask = async (operation, args, options) => {
    try {
      return { value: await quillmark[operation](...args, options) };
    } catch ({ code, ckr }) {
      return { code, ckr };
    }
  };
  document.querySelector("button").addEventListener("click", async () => {
    const { value, code } = await ask("signAuthToken", ["a token"]);
    document.querySelector("output").textContent = value ?? code;
  });
</script>`;

/** Clicks in the page, and has it call an operation of the page library: { value } or { code, ckr }. */
export async function ask(page, operation, args, options = {}) {
  await page.waitForFunction("window.ask");
  await page.click("output");
  return page.evaluate((given) => window.ask(...given), [operation, args, options]);
}
