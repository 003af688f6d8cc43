// Who may know what: the table of ARCHITECTURE.md, held against the #include lines.

import assert from "node:assert/strict";
import { basename } from "node:path";
import { test } from "node:test";

import { filesOfTree, includesOf, ownHeadersIn, read } from "./lib/tree.mjs";

// Code that we did not write. What is in none of these, has no slash and does not end in ".h" is the C++ library.
const wx = /^<wx\//;
const openssl = /^<openssl\//;
const json = /^<nlohmann\//;
const pugixml = /^<pugixml\.hpp>$/;
const pkcs11 = /^<p11-kit\/pkcs11\.h>$/;
const p11kit = /^<p11-kit\//;
const posix = /^<((sys|linux|bits)\/\w+|dlfcn|fcntl|poll|pwd|spawn|termios|unistd)\.h>$/;
const standard = /^<\w+>$/;

// Our own units, as include lines name them. A file may always include the header of its own class.
const shared = /^"QMHostShared\.h"$/;
const tools = /^"QMTools\.h"$/;
const decoder = /^"QMX509Decoder\.h"$/;
const token = /^"(TokenManager|Pkcs11Call)\.h"$/;
const cards = /^"CardList\.h"$/;
const pinDialog = /^"PinDialog\.h"$/;
const frames = /^"Frames\.h"$/;
const inMessage = /^"InMessage\.h"$/;
const structures = /^"SignedDataXml\.h"$/;
const selection = /^"SelectionWindow\.h"$/;
const messaging = /^"QMNativeMessagingHost\.h"$/;
const window_ = /^"MainSelectCertificate\.h"$/;
const ck = /^"ck\/Ck\w+\.h"$/;

/** The program: what each file may include. From the bottom to the top; nothing points upward. */
const program = {
  "QMHostShared.h": [],
  "QMTools.h": [],
  "QMTools.cpp": [tools],
  "QMX509Decoder.h": [],
  "QMX509Decoder.cpp": [decoder, shared, ck],
  "CardList.h": [wx],
  "CardList.cpp": [cards, wx],
  "Pkcs11Call.h": [pkcs11],
  "TokenManager.h": [shared, ck, pkcs11],
  "PinDialog.h": [],
  "PinDialog.cpp": [pinDialog, shared, ck, wx],
  "TokenManager.cpp": [token, pinDialog, decoder, shared, ck, posix],
  "Frames.h": [],
  "Frames.cpp": [frames, posix],
  "InMessage.h": [ck],
  "SignedDataXml.h": [ck],
  "SignedDataXml.cpp": [structures, shared, ck],
  "SelectionWindow.h": [],
  "SelectionWindow.cpp": [selection, cards, shared, wx],
  "QMNativeMessagingHost.h": [shared, ck],
  // wx: the window is shown, waited for, and closed when the input ends
  "QMNativeMessagingHost.cpp": [messaging, cards, frames, inMessage, selection, structures, token, tools, shared, ck, wx],
  "MainSelectCertificate.h": [wx],
  "MainSelectCertificate.cpp": [window_, messaging, cards, token, shared, ck, wx],
  "main.cpp": [window_, frames],
};

// Headers of ck that say so of themselves.
const privateHeaders = filesOfTree("ck/*.h").filter((header) => /^\/\/ Private to ck\b/m.test(read(header)));
const isPrivate = (header) => privateHeaders.includes(header);

test("each file of the program includes only what is below it", () => {
  const files = filesOfTree("QMChromeExtHost/*.cpp", "QMChromeExtHost/*.h");
  assert.deepEqual(files.map((file) => basename(file)).sort(), Object.keys(program).sort(),
    "the table in this test and the files of QMChromeExtHost/ differ");
  assert.deepEqual(forbidden(files, (file) => program[basename(file)]), []);
});

test("ck knows nothing of the program, and its public headers name no foreign type", () => {
  const files = filesOfTree("ck/*.cpp", "ck/*.h");
  const isPublic = (file) => file.endsWith(".h") && !isPrivate(file);
  assert.deepEqual(forbidden(files, (file) => [ownHeader("ck"), ...(isPublic(file) ? [] : [openssl, json, pugixml, posix])]), []);

  const foreign = /\b(EVP_\w+|X509\w*|ASN1_\w+|BIO|GENERAL_NAMES?|nlohmann|pugi)\b/;
  const naming = files.filter(isPublic).filter((file) => foreign.test(withoutComments(read(file))));
  assert.deepEqual(naming, [], "a public header of ck names a type of a library");
  for (const file of files.filter(isPublic)) {
    assert.deepEqual(includesOf(file).filter((line) => isPrivate(`ck/${line.slice(1, -1)}`)), [], `${file} includes a private header`);
  }
});

test("only ck, and tests of it, include its private headers", () => {
  const outside = filesOfTree("*.cpp", "*.h").filter((file) => !/^(ck|tests\/unit\/ck|fuzz)\//.test(file));
  const including = outside.filter((file) => includesOf(file).some((line) => /^"ck\//.test(line) && isPrivate(line.slice(1, -1))));
  assert.deepEqual(including, []);
});

test("the token driver shares no code with the program", () => {
  const files = filesOfTree("QMTokenDriver/*.cpp", "QMTokenDriver/*.h");
  assert.deepEqual(forbidden(files, () => [ownHeader("QMTokenDriver"), p11kit, openssl, json, posix]), []);
});

test("no two headers include each other", () => {
  const headers = filesOfTree("*.h");
  const done = new Set();
  const visit = (header, path) => {
    assert.ok(!path.includes(header), `a circle: ${[...path, header].join(" -> ")}`);
    if (done.has(header)) return;
    for (const target of ownHeadersIn(header)) visit(target, [...path, header]);
    done.add(header);
  };
  assert.ok(headers.length > 0);
  for (const header of headers) visit(header, []);
});

/** The include lines of `files` that neither `allowedFor` nor the C++ library covers, as "file: <line>". */
function forbidden(files, allowedFor) {
  assert.ok(files.length > 0);
  return files.flatMap((file) => {
    const allowed = [standard, ...allowedFor(file)];
    return includesOf(file).filter((line) => !allowed.some((rule) => rule.test(line))).map((line) => `${file}: ${line}`);
  });
}

/** A header that lies in `folder`, by its bare name. */
function ownHeader(folder) {
  const names = filesOfTree(`${folder}/*.h`).map((file) => basename(file));
  return { test: (line) => names.includes(line.slice(1, -1)) && line.startsWith('"') };
}


function withoutComments(text) {
  return text.replace(/\/\*[^]*?\*\/|\/\/.*/g, "");
}
