// A real browser with the extension, in a home of its own.

import { readFile, readlink } from "node:fs/promises";
import { join } from "node:path";

import puppeteer from "puppeteer-core";

// Firefox gives each installation of an extension an address of its own; the tests have to know it.
const FIREFOX_ADDRESS = "5bb1ddc5-9efb-4a4f-9b09-7d44f1e3a001";

const BROWSERS = {
  chromium: ({ home, language, isAccessible }) => ({
    browser: "chrome",
    executablePath: "/usr/bin/chromium",
    userDataDir: join(home, ".config/chromium"),
    pipe: true,
    enableExtensions: true,
    // Chromium refuses to run as root inside its sandbox.
    args: ["--no-first-run", `--lang=${language}`, ...(process.getuid() === 0 ? ["--no-sandbox"] : []),
      // Of itself it tells a screen reader's bus of its windows, but not of what is in them. Firefox needs no word.
      ...(isAccessible ? ["--force-renderer-accessibility"] : [])],
    // Its notice would cover a part of every window; and a page that one comes back to is what users have.
    ignoreDefaultArgs: ["--enable-automation", "--disable-back-forward-cache"],
  }),
  firefox: ({ firefoxId, language }) => ({
    browser: "firefox",
    executablePath: "/usr/bin/firefox-esr",
    // So that the tests can look into the extension's own pages.
    args: ["--remote-allow-system-access"],
    extraPrefsFirefox: {
      "extensions.webextensions.uuids": JSON.stringify({ [firefoxId]: FIREFOX_ADDRESS }),
      "intl.locale.requested": language,
    },
  }),
};

// What puppeteer sets otherwise, so that no extension of all users is loaded or fetched. In Firefox these are Debian's settings.
const WITH_INSTALLED_EXTENSION = {
  chromium: ({ ignoreDefaultArgs }) => ({
    enableExtensions: false,
    ignoreDefaultArgs: [...ignoreDefaultArgs, "--disable-extensions", "--disable-background-networking"],
  }),
  firefox: ({ extraPrefsFirefox }) => ({
    extraPrefsFirefox: { ...extraPrefsFirefox, "extensions.enabledScopes": 15, "extensions.autoDisableScopes": 3 },
  }),
};

const ENGLISH = "en-US";

/** The environment in which a browser finds registrations and settings in `home`, and what is in `env`. */
const environment = (home, env, language = ENGLISH) => ({
  ...process.env, ...env, HOME: home, LANGUAGE: language.replace("-", "_"),
  XDG_CONFIG_HOME: join(home, ".config"), XDG_CACHE_HOME: join(home, ".cache"), XDG_DATA_HOME: join(home, ".local/share"),
});

const extensionUrl = (name, ids) => (name === "firefox" ? `moz-extension://${FIREFOX_ADDRESS}` : `chrome-extension://${ids.chromium}`);

/**
 * Starts "chromium" or "firefox" with windows and installs the extension of the folder `extension`; without one, it is installed
 * for all users. Its `ids` are { chromium, firefox }. From `home` come registrations and settings. The browser speaks `language`,
 * whatever the machine does; it `isAccessible` where screen readers are told what is in it. `more`: of puppeteer's options. Gives puppeteer's browser, with `extensionUrl` for the extension's own
 * pages.
 */
export async function startBrowser(name, { home, extension = null, ids, env, language = ENGLISH, isAccessible = false, more = {} }) {
  const options = BROWSERS[name]({ home, firefoxId: ids.firefox, language, isAccessible });
  const browser = await puppeteer.launch({
    ...options,
    ...(extension ? {} : WITH_INSTALLED_EXTENSION[name](options)),
    headless: false,
    defaultViewport: null,
    env: environment(home, env, language),
    ...more,
  });
  if (extension) await browser.installExtension(extension);
  return Object.assign(browser, { extensionUrl: extensionUrl(name, ids) });
}

/**
 * What somebody else's puppeteer or Playwright starts Chromium with, for the same as startBrowser's. No pipe shows the extension's
 * own pages to us then: they are seen by a port of Chromium's own (connectTo).
 */
export function launchOptions({ home, extension, env, isAccessible = false }) {
  const { executablePath, userDataDir, args, ignoreDefaultArgs } = BROWSERS.chromium({ home, language: ENGLISH, isAccessible });
  return {
    executablePath, userDataDir, headless: false, viewport: null, defaultViewport: null, env: environment(home, env),
    args: [...args, `--load-extension=${extension}`, "--remote-debugging-port=0"],
    ignoreDefaultArgs: [...ignoreDefaultArgs, "--disable-extensions"],
  };
}

/**
 * Puppeteer's browser for the Chromium of this home that was started with launchOptions, with its process's `pid`; undefined while
 * there is none.
 */
export async function connectTo({ home, ids }) {
  const { userDataDir } = BROWSERS.chromium({ home, language: ENGLISH });
  const [port, path] = (await readFile(join(userDataDir, "DevToolsActivePort"), "utf8").catch(() => "")).split("\n");
  if (!path) return undefined;
  const browser = await puppeteer.connect({ browserWSEndpoint: `ws://127.0.0.1:${port}${path}`, defaultViewport: null });
  const lock = await readlink(join(userDataDir, "SingletonLock")); // "computer-pid"
  return Object.assign(browser, { extensionUrl: extensionUrl("chromium", ids), pid: Number(lock.split("-").at(-1)) });
}
