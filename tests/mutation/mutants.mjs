// Small faults that somebody could make, each a change of one place in a source file.

import { createHash } from "node:crypto";

const STRINGS = String.raw`"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'`;

/** What is no code, by the end of a file's name: comments, texts, expressions for texts, lines of the preprocessor. */
const NO_CODE = {
  cpp: new RegExp(String.raw`//.*|/\*[^]*?\*/|R"\([^]*?\)"|"(?:\\.|[^"\\\n])*"|'(?:\\.[^'\n]*|[^'\\\n])'|^#.*`, "gm"),
  js: new RegExp(String.raw`//.*|/\*[^]*?\*/|${STRINGS}|\`(?:\\.|[^\`\\])*\`|(?<=[(,=:!&|?]\s*|return )/(?![*/])(?:\\.|\[(?:\\.|[^\]\\])*\]|[^/\n\\])+/`, "gm"),
  py: new RegExp(String.raw`#.*|"""[^]*?"""|${STRINGS}`, "gm"),
};

const next = (number) => `${Number(number) + 1}`;
const EVERYWHERE = [
  [/ == /g, " != "], [/ != /g, " == "], [/ < /g, " <= "], [/ > /g, " >= "], [/ <= /g, " < "], [/ >= /g, " > "],
  [/ \+ /g, " - "], [/ - /g, " + "], [/(?<![\w.])\d+(?![\w.'])/g, next],
];
const WITH_BRACES = [
  ...EVERYWHERE, [/ && /g, " || "], [/ \|\| /g, " && "], [/(?<=[(\s])!(?=[\w(])/g, ""], [/\btrue\b/g, "false"], [/\bfalse\b/g, "true"],
  [/(?<=^ +)[\w.:>-]+\(.*\);$/gm, ";"], [/\bcontinue;/g, ";"],
];
const CHANGES = {
  cpp: WITH_BRACES,
  js: [...WITH_BRACES, [/ === /g, " !== "], [/ !== /g, " === "], [/(?<=\breturn ).+(?=;$)/gm, "null"]],
  py: [
    ...EVERYWHERE, [/ and /g, " or "], [/ or /g, " and "], [/\bnot (?!in\b)/g, ""], [/ not in /g, " in "], [/(?<!for .*)(?<! not) in /g, " not in "],
    [/\bTrue\b/g, "False"], [/\bFalse\b/g, "True"], [/(?<=^ +)[\w.]+\(.*\)$/gm, "pass"], [/(?<=\breturn ).+$/gm, "None"],
  ],
};

/** The language of a file, which has CHANGES; scripts without an end to their names are Python here. */
const languageOf = (file) => /\.(cpp|js)$/.exec(file)?.[1] ?? "py";

/**
 * All mutants of a file's `text`: [{ file, line, before, after, text, order }], the changed line before and after, the changed text, and
 * an order that looks like chance and stays as it is for as long as the line does.
 */
export function mutantsOf(file, text) {
  const language = languageOf(file);
  const code = text.replace(NO_CODE[language], (match) => match.replace(/[^\n]/g, "\0"));
  return CHANGES[language].flatMap(([pattern, replacement]) => [...code.matchAll(pattern)].flatMap(({ 0: found, index }) => {
    const changed = typeof replacement === "function" ? replacement(found) : replacement;
    const mutated = text.slice(0, index) + changed + text.slice(index + found.length);
    const line = text.slice(0, index).split("\n").length;
    const [before, after] = [text, mutated].map((each) => each.split("\n")[line - 1].trim());
    if (before === after) return [];
    const order = createHash("sha256").update(`${file}\n${before}\n${after}\n${index - text.lastIndexOf("\n", index)}`).digest("hex");
    return { file, line, before, after, text: mutated, order };
  }));
}
