// A user without a mouse, in pages and in the extension's windows.

import assert from "node:assert/strict";

import { sleep } from "../../lib/browser-kit.mjs";

/** A page like the users' own: a button, and what came of it. */
const KEYS_PAGE = `<button id="go">Sign</button><p id="outcome" role="status"></p><script>
  const go = document.getElementById("go");
  go.onclick = async () => {
    const outcome = await window.act();
    document.getElementById("outcome").textContent = JSON.stringify(outcome);
  };
</script>`;

/** What has the keyboard, and whether it is seen; the browser's own ring is of a style "auto". */
export const focusIn = () => {
  const { activeElement: element } = document;
  const { outlineStyle, outlineWidth } = getComputedStyle(element);
  const isSeen = outlineStyle === "auto" || (outlineStyle === "solid" && parseFloat(outlineWidth) >= 2);
  return { id: element.id, name: element.ariaLabel ?? element.textContent.trim(), isSeen, hasFocus: document.hasFocus() };
};

/** What the user of this Rig does. */
export function keyboard(rig) {
  rig.addPage("/keys", KEYS_PAGE);

  /** Presses Tab, or another key, until the wanted element has the keyboard; all on the way are seen. */
  async function tabTo(window, focus, wanted, key = "Tab") {
    for (let i = 0; i < 30; i++) {
      const now = await focus();
      if (now.id === wanted || now.name === wanted) {
        assert.ok(now.isSeen, `the ring around ${wanted}`);
        return;
      }
      await rig.user.press(window, key);
    }
    assert.fail(`${wanted} is not reached by ${key}`);
  }

  /** Presses Return when the window takes it: a key that is no answer has it wait once more. */
  async function answer(id, whenLive) {
    await sleep(300);
    await whenLive();
    await rig.user.press(id, "Return");
  }

  const inPage = (page) => () => page.evaluate(focusIn);

  /** What has the keyboard in the extension's page of this path, for tabTo. */
  const inOwn = (path) => () => rig.extension.at(path, focusIn);

  /** Calls `act` in a page of a fresh origin, where it sets window.act, which the page's button calls; that has the keyboard. */
  async function keysPage(t, act, ...args) {
    const origin = await rig.freshOrigin(t);
    const page = await rig.page(t, { origin, path: "/keys" });
    await page.evaluate(act, ...args);
    await page.bringToFront();
    const window = await rig.user.browserWindow("Test page");
    await tabTo(window, inPage(page), "go");
    return { origin, page, window };
  }

  return { tabTo, answer, inOwn, keysPage };
}
