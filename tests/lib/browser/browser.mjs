// A real browser with the extension, in a home of its own.

import { join } from "node:path";

import puppeteer from "puppeteer-core";

// Firefox gives each installation of an extension an address of its own; the tests have to know it.
const FIREFOX_ADDRESS = "5bb1ddc5-9efb-4a4f-9b09-7d44f1e3a001";

const BROWSERS = {
  chromium: ({ home, language }) => ({
    browser: "chrome",
    executablePath: "/usr/bin/chromium",
    userDataDir: join(home, ".config/chromium"),
    pipe: true,
    enableExtensions: true,
    // Chromium refuses to run as root inside its sandbox.
    args: ["--no-first-run", `--lang=${language}`, ...(process.getuid() === 0 ? ["--no-sandbox"] : [])],
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

/**
 * Starts "chromium" or "firefox" with windows and installs the extension of the folder `extension`; without one, it is installed
 * for all users. Its `ids` are { chromium, firefox }. From `home` come registrations and settings. The browser speaks `language`,
 * whatever the machine does. Gives puppeteer's browser, with `extensionUrl` for the extension's own pages.
 */
export async function startBrowser(name, { home, extension = null, ids, env, language = "en-US" }) {
  const options = BROWSERS[name]({ home, firefoxId: ids.firefox, language });
  const browser = await puppeteer.launch({
    ...options,
    ...(extension ? {} : WITH_INSTALLED_EXTENSION[name](options)),
    headless: false,
    defaultViewport: null,
    env: {
      ...process.env, ...env, LANGUAGE: language.replace("-", "_"), HOME: home, XDG_CONFIG_HOME: join(home, ".config"), XDG_CACHE_HOME: join(home, ".cache"),
    },
  });
  if (extension) await browser.installExtension(extension);
  browser.extensionUrl = name === "firefox" ? `moz-extension://${FIREFOX_ADDRESS}` : `chrome-extension://${ids.chromium}`;
  return browser;
}
