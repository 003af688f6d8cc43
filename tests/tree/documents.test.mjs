// What the documents name is there: links, files, commands with their options, presets, and names out of the code.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { dirname, join, normalize } from "node:path";
import { test } from "node:test";

import { filesOfTree, read, root, run } from "./lib/tree.mjs";

const documents = filesOfTree("*.md").map((file) => ({ file, ...partsOf(read(file)) }));

test("each link leads to a file of the tree, or to a heading in one", () => {
  const links = documents.flatMap(({ file, text }) =>
    [...text.matchAll(/\]\(([^)\s]+)\)/g)].map(([, target]) => ({ file, target })));
  assert.ok(links.length > 0);
  assert.deepEqual(links.filter((link) => !isAddress(link.target) && !leadsSomewhere(link)), []);
});

test("each file named in code style exists", () => {
  const folders = filesOfTree().filter((file) => file.includes("/")).map((file) => file.split("/")[0]);
  const first = [...new Set(folders)].join("|").replaceAll(".", "\\.");
  const named = inlineCode().filter(({ code }) => new RegExp(`^(${first})/[\\w./*-]*$`).test(code));
  assert.ok(named.length > 0);
  assert.deepEqual(named.filter(({ code }) => !existsSync(join(root, code)) && filesOfTree(code).length === 0), []);
});

test("each name in code style stands somewhere in the code, or is a command", () => {
  const code = filesOfTree().filter((file) => !/\.md$|package-lock\.json$|\.(png|svg|bin)$/.test(file)).map(read).join("\n");
  const known = new Set(code.match(/[\w.$@-]+/g).flatMap((word) => [word, ...word.split(/[.$@-]/)]));
  const unknown = inlineCode().filter(({ code: name }) => /^[A-Za-z_][\w:]{2,}(\(\))?$/.test(name))
    .filter(({ code: name }) => !name.replace("()", "").split("::").every((part) => known.has(part) || isInstalled(part)));
  assert.deepEqual(unknown, []);
});

test("each command exists, and each option of a command of ours", () => {
  const commands = [...documents.flatMap(({ file, blocks }) =>
    blocks.filter(({ language }) => language === "sh").flatMap(({ content }) => commandsIn(content).map((line) => ({ file, line })))),
  ...inlineCode().filter(({ code }) => /^(\.\/|tools\/|quillmark-[a-z]+(?![\w/]))/.test(code)).map(({ file, code }) => ({ file, line: code }))];
  assert.ok(commands.length > 0);
  assert.deepEqual(commands.flatMap(({ file, line }) => complaintsAbout(line).map((complaint) => `${file}: ${complaint}`)), []);
});

test("each block of shell commands is well-formed", async () => {
  for (const { file, blocks } of documents) {
    for (const { content } of blocks.filter(({ language }) => language === "sh")) {
      const { status, output } = await run("bash", ["-n", "-c", content]);
      assert.equal(status, 0, `${file}:\n${content}\n${output}`);
    }
  }
});

test("each manual page names the options of its command, all of them", () => {
  const pages = filesOfTree("packaging/man/*.1");
  assert.ok(pages.length > 0);
  for (const page of pages) {
    const named = new Set(read(page).replaceAll("\\-", "-").match(/--[a-z]+/g));
    const sources = sourcesOf(page.replace(/.*\/|\.1$/g, "")).map(read).join("\n");
    const taken = new Set(sources.match(/(?<=")--[a-z]+(?=")/g)).add("--help");
    assert.deepEqual([...named.add("--help")].sort(), [...taken].sort(), page);
  }
});

test("each piece of code that is quoted stands in the code", () => {
  const code = filesOfTree("*.cpp", "*.h", "*.mjs", "*.js").map((file) => withoutIndents(read(file))).join("\n");
  const quoted = documents.flatMap(({ file, blocks }) =>
    blocks.filter(({ info }) => ["cpp", "js"].includes(info)).map(({ content }) => ({ file, content })));
  assert.ok(quoted.length > 0);
  assert.deepEqual(quoted.filter(({ content }) => !code.includes(withoutIndents(content))), []);
});

test("each preset that is named is one of CMakePresets.json", () => {
  const presets = JSON.parse(read("CMakePresets.json")).configurePresets.map(({ name }) => name);
  const named = documents.flatMap(({ file }) => [...read(file).matchAll(/--preset[= ](\w+)/g)].map(([, name]) => ({ file, name })));
  assert.deepEqual(named.filter(({ name }) => !presets.includes(name)), []);
});

function withoutIndents(text) {
  return text.trim().replace(/\n\s*/g, "\n");
}

/** A document's fenced blocks, and its text without them. */
function partsOf(markdown) {
  const fence = /^```([^\n]*)\n([^]*?)^```$/gm;
  const blocks = [...markdown.matchAll(fence)].map(([, info, content]) => ({ info, language: info.split(/[ ,]/)[0], content }));
  return { blocks, text: markdown.replace(fence, "") };
}

function inlineCode() {
  return documents.flatMap(({ file, text }) => [...text.matchAll(/`([^`\n]+)`/g)].map(([, code]) => ({ file, code })));
}

function isAddress(target) {
  return /^(https?|mailto):/.test(target);
}

function leadsSomewhere({ file, target }) {
  const [path, heading] = target.split("#");
  const goal = path ? normalize(join(dirname(file), path)) : file;
  return existsSync(join(root, goal)) && (!heading || headingsOf(read(goal)).includes(heading));
}

/** The headings of a document as links name them. */
function headingsOf(markdown) {
  return [...markdown.matchAll(/^#+ (.*)$/gm)]
    .map(([, title]) => title.toLowerCase().replace(/[^\p{L}\p{N} _-]/gu, "").replaceAll(" ", "-"));
}

/** The simple commands of a block, one per line; continued lines joined, comments and here-documents left out. */
function commandsIn(block) {
  return block.replace(/\\\n\s*/g, " ").replace(/<<'?(\w+)'?[^]*?^\1$/gm, "").split("\n")
    .map((line) => line.replace(/(^|\s)#.*$/, ""))
    .flatMap((line) => line.split(/&&|\|\||[|;]/)).map((line) => line.trim()).filter(Boolean);
}

/** What is wrong with a command line: the command is unknown, or an option that a command of ours does not have. */
function complaintsAbout(line) {
  const words = line.split(/\s+/).filter((word) => !/^(sudo|exec|time|then|do|!|\w+=\S*)$/.test(word));
  const [command, ...rest] = words;
  if (!command) return [];
  if (/^\.\/QM/.test(command)) return []; // what a build makes
  const sources = sourcesOf(command);
  if (sources?.length === 0) return [`no command ${command} (in: ${line})`];
  if (!sources) return isInstalled(command) || isBuiltin(command) ? [] : [`no command ${command} (in: ${line})`];
  const text = sources.map(read).join("\n");
  return rest.filter((word) => /^--\w/.test(word) && !text.includes(word.split("=")[0].slice(2)))
    .map((option) => `${command} has no option ${option}`);
}

/** The files in which a command of ours reads its options; null for a command that is not ours, [] when it is missing. */
function sourcesOf(command) {
  if (/^\.?\w*\//.test(command) && !command.startsWith("/")) {
    const path = command.replace(/^\.\//, "");
    return filesOfTree(path, `tools/${path}*`);
  }
  if (/^quillmark-(browsers|doctor|host|journal)$/.test(command)) return [`packaging/${command}`];
  if (command === "quillmark-tokens") return filesOfTree("quillmark-tokens/*.cpp");
  return null;
}

function isInstalled(command) {
  return process.env.PATH.split(":").some((folder) => existsSync(join(folder, command)));
}

function isBuiltin(command) {
  return ["cd", "export", "echo", "printf", "read", "if", "fi", "for", "done", "while", "set", "test", "source", "."].includes(command);
}
