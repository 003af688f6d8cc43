// The browser's part in the extension's words: `i18n` as browsers have it, on the catalogues in extension/_locales.

import { readFileSync } from "node:fs";

const LOCALES = new URL("../../extension/_locales/", import.meta.url);

export const catalogueOf = (language) => JSON.parse(readFileSync(new URL(`${language}/messages.json`, LOCALES), "utf8"));

/** What the browser gives an extension whose catalogue is this language's: a key's case makes no difference, "$$" is "$". */
export function i18nIn(language, uiLanguage = language) {
  const catalogue = new Map(Object.entries(catalogueOf(language)).map(([key, { message }]) => [key.toLowerCase(), message]));
  return {
    getUILanguage: () => uiLanguage,
    getMessage(key, substitutions = []) {
      const values = [substitutions].flat();
      if (values.length > 9 || !values.every((value) => typeof value === "string")) throw new TypeError("substitutions are at most nine texts");
      const text = catalogue.get(key.toLowerCase()) ?? "";
      return text.replace(/\$(?:(\d)|(\$+))/g, (_, number, dollars) => dollars ?? values[number - 1] ?? "");
    },
  };
}

/** Has the extension's modules speak a language from here on. */
export function speak(...language) {
  globalThis.chrome = { ...globalThis.chrome, i18n: i18nIn(...language) };
}

speak("en", "en-US");
