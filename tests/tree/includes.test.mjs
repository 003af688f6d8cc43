// Who may know what: the table of ARCHITECTURE.md, held against the #include lines.

import assert from "node:assert/strict";
import { basename } from "node:path";
import { test } from "node:test";

import { filesOfTree, includesOf, ownHeadersIn, read } from "./lib/tree.mjs";

// Code that we did not write. What is in none of these, has no slash and does not end in ".h" is the C++ library.
const wx = /^<wx\//;
const gtk = /^<gtk\/gtk(-a11y)?\.h>$/;
const openssl = /^<openssl\//;
const json = /^<nlohmann\//;
const pugixml = /^<pugixml\.hpp>$/;
const pkcs11 = /^<p11-kit\/pkcs11\.h>$/;
const p11kit = /^<p11-kit\//;
const posix = /^<((sys|linux|bits)\/\w+|dlfcn|fcntl|poll|pwd|spawn|termios|unistd)\.h>$/;
const standard = /^<\w+>$/;

const ck = /^"ck\/Ck\w+\.h"$/;

// The tables: what each file may include. A name is that of one of our headers, without its ".h"; the one of the file's own
// name goes without saying. From the bottom to the top; nothing points upward.

const host = {
  "QMHostShared.h": [],
  "QMTools.h": [],
  "QMTools.cpp": [],
  "QMX509Decoder.h": [],
  "QMX509Decoder.cpp": ["QMHostShared", ck],
  "CardListAccessible.h": [],
  "CardListAccessible.cpp": [gtk, wx],
  "CardList.h": ["CardListAccessible", "QMX509Decoder", wx],
  "CardList.cpp": [wx],
  "PinDialog.h": [],
  "PinDialog.cpp": ["CardListAccessible", "QMHostShared", ck, wx],
  "Pkcs11Call.h": [pkcs11],
  "TokenManager.h": ["QMX509Decoder", "QMHostShared", ck, pkcs11],
  "TokenManager.cpp": ["Pkcs11Call", "PinDialog", "QMHostShared", ck, posix],
  "Frames.h": [],
  "Frames.cpp": [posix],
  "InMessage.h": [ck],
  "SignedDataXml.h": [ck],
  "SignedDataXml.cpp": ["QMHostShared", ck],
  "SelectionWindow.h": [],
  "SelectionWindow.cpp": ["CardList", "QMHostShared", wx],
  "QMNativeMessagingHost.h": ["QMHostShared", ck],
  // wx: the window is shown, waited for, and closed when the input ends
  "QMNativeMessagingHost.cpp":
    ["CardList", "Frames", "InMessage", "SelectionWindow", "SignedDataXml", "TokenManager", "QMTools", "QMHostShared", ck, wx],
  "MainSelectCertificate.h": [wx],
  "MainSelectCertificate.cpp": ["QMNativeMessagingHost", "SelectionWindow", "CardList", "TokenManager", "QMHostShared", ck, wx],
  "main.cpp": ["MainSelectCertificate", "Frames"],
};

const driver = {
  "Pkcs11Error.h": [pkcs11],
  "OpenSslPtr.h": [openssl],
  "Ckr.h": [pkcs11],
  "Ckr.cpp": [p11kit],
  "KeptPin.h": [pkcs11],
  "KeptPin.cpp": [openssl, posix],
  "ModuleFiles.h": [],
  "ModuleFiles.cpp": [p11kit, posix],
  "ModuleProbe.h": [],
  "ModuleProbe.cpp": ["ModuleFiles", p11kit, posix],
  "Backends.h": ["ModuleProbe", pkcs11],
  "Backends.cpp": ["Ckr", "ModuleFiles", "ModuleProbe", "Pkcs11Error", p11kit],
  "Attributes.h": [pkcs11],
  "Attributes.cpp": ["Pkcs11Error"],
  "Mechanisms.h": [pkcs11],
  "Mechanisms.cpp": ["Pkcs11Error", openssl],
  "CutShort.h": [pkcs11],
  "CutShort.cpp": ["Mechanisms"],
  "TokenLog.h": [],
  "TokenLog.cpp": [posix],
  "TokenScan.h": ["Backends", pkcs11],
  "TokenScan.cpp": ["Ckr", "Mechanisms"],
  "ModuleSession.h": ["Attributes", pkcs11],
  "ModuleSession.cpp": ["Pkcs11Error"],
  "Offered.h": ["ModuleSession", "OpenSslPtr", pkcs11],
  "Offered.cpp": [openssl],
  "Token.h": ["KeptPin", "Offered", "Pkcs11Error", "TokenScan", pkcs11],
  "Token.cpp": ["Ckr", "TokenLog"],
  "GivenObjects.h": ["Attributes", "Offered", "Token", pkcs11],
  "GivenObjects.cpp": ["Pkcs11Error"],
  "Catalogue.h": ["Offered", "Token"],
  "Catalogue.cpp": ["Ckr", "TokenLog"],
  "Logins.h": ["KeptPin", "Token", pkcs11],
  "Logins.cpp": ["Pkcs11Error"],
  "Pinentry.h": ["KeptPin", "TokenScan", pkcs11],
  "Pinentry.cpp": ["Attributes", "TokenLog", openssl, posix],
  "Session.h": ["Attributes", "Catalogue", "GivenObjects", "Logins", pkcs11],
  "Session.cpp": ["Ckr", "CutShort", "Mechanisms", "Pkcs11Error", "TokenLog", openssl],
  "Driver.h": ["Backends", "Catalogue", "GivenObjects", "Logins", "Session", pkcs11],
  "Driver.cpp": ["Pkcs11Error", "TokenLog"],
  "EntryPoints.cpp": ["Backends", "Driver", "KeptPin", "Pinentry", "Pkcs11Error"],
};

const parts = (...names) => names.map((name) => `QMTokenDriver/${name}`);
const tool = {
  "CertificateFacts.h": parts("Attributes"),
  "CertificateFacts.cpp": [...parts("OpenSslPtr"), openssl],
  "Inventory.h": ["CertificateFacts", ...parts("Backends", "KeptPin", "ModuleProbe", "Offered", "TokenScan")],
  "Inventory.cpp": parts("Catalogue", "Ckr", "ModuleSession", "Pkcs11Error"),
  "InventoryReport.h": ["Inventory"],
  "InventoryReport.cpp": [...parts("TokenLog"), json],
  "PinPrompt.h": parts("KeptPin"),
  "PinPrompt.cpp": [openssl, posix],
  "QuillmarkTokens.cpp": ["Inventory", "InventoryReport", "PinPrompt", ...parts("TokenLog"), posix],
};

// Headers of ck that say so of themselves.
const privateHeaders = filesOfTree("ck/*.h").filter((header) => /^\/\/ Private to ck\b/m.test(read(header)));
const isPrivate = (header) => privateHeaders.includes(header);

for (const [folder, table] of Object.entries({ QMChromeExtHost: host, QMTokenDriver: driver, "quillmark-tokens": tool })) {
  test(`each file of ${folder}/ includes only what is below it`, () => {
    const files = filesOfTree(`${folder}/*.cpp`, `${folder}/*.h`);
    assert.deepEqual(files.map((file) => basename(file)).sort(), Object.keys(table).sort(),
      `the table in this test and the files of ${folder}/ differ`);
    assert.deepEqual(pointingUpward(table), []);
    assert.deepEqual(forbidden(files, (file) => [ownName(file), ...table[basename(file)].map(asRule)]), []);
  });
}

test("ck knows nothing of the host, and its public headers name no foreign type", () => {
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

/** The names in a table that are not above the row that names them, as "row: name". */
function pointingUpward(table) {
  const rows = Object.keys(table);
  return Object.entries(table).flatMap(([file, allowed], row) => allowed
    .filter((name) => typeof name === "string" && !name.includes("/") && !rows.slice(0, row).includes(`${name}.h`))
    .map((name) => `${file}: ${name}`));
}

/** Allows the header of this name, where it is one; what is no name is a rule already. */
function asRule(name) {
  return typeof name === "string" ? { test: (line) => line === `"${name}.h"` } : name;
}

/** Allows a file the header of its own name. */
function ownName(file) {
  return asRule(basename(file).replace(/\.\w+$/, ""));
}

function withoutComments(text) {
  return text.replace(/\/\*[^]*?\*\/|\/\/.*/g, "");
}
