/** The words of the extension for people, from the catalogues in _locales: the browser chooses by its own language. */

const i18n = () => (globalThis.browser ?? globalThis.chrome).i18n;

// Stands for a value's number within a message.
const HOLE = "\u001f";

/** The language of the catalogue that the browser has chosen. */
export const language = () => message("page_language");

/** How numbers and dates are written: as the browser's user has it, where he has the language that is shown. */
export function locale() {
  const browsers = i18n().getUILanguage();
  return browsers.split(/[-_]/)[0] === language() ? browsers : language();
}

/** The message of this key with values in the places of $1, $2, ... Numbers are written as in the language. */
export function message(key, ...values) {
  return i18n().getMessage(key, values.map((value) => (typeof value === "number" ? value.toLocaleString(locale()) : value)));
}

/** The message that the language has for so many: that of `key` and the number's plural category. The number is $1. */
export const counted = (key, number, ...values) =>
  message(`${key}_${new Intl.PluralRules(locale()).select(number)}`, number, ...values);

/** The message in pieces: its texts and, in the places of $1, $2, ..., the values, which may be of any kind. */
export function messageAround(key, ...values) {
  const text = message(key, ...values.map((_, i) => `${HOLE}${i}${HOLE}`));
  return text.split(HOLE).map((piece, i) => (i % 2 === 1 ? values[piece] : piece)).filter((piece) => piece !== "");
}
