// What a user hears who cannot see the screen, and does with keys alone. A transcript holds what is to be heard, line by line.

import assert from "node:assert/strict";
import { before, test } from "node:test";

import {
  CANCEL_TEXT, CHOOSE, Ears, expectTranscript, FAILURE_PREFIX, LOADING, PIN_TITLE, ScreenReader, waitFor, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const SIGN = { action: "GSTReturnSign", hash: "to be signed" };
const LIST = 'focus list box "Certificates"';
const OK = 'focus push button "OK"';
const CANCEL = 'focus push button "Cancel"';
const PIN = 'focus password text "Please Enter Token PIN"';

let desktop;
before(async () => (desktop = await world.addDesktop({ accessible: true })));

/** Three certificates with names and dates of their own. */
function threeCertificates() {
  const people = [
    ["asha", "/C=IN/O=Asha Exports/CN=Asha Rao", { email: "asha@exports.example", to: "20491231235959Z" }],
    ["ravi", "/C=IN/O=Ravi & Sons/CN=Ravi <Kumar>", { email: null, to: "20480101000000Z" }],
    ["meena", "/C=IN/CN=Meena", { email: "meena@post.example", to: "20231115000000Z" }],
  ];
  return Promise.all(people.map(async ([name, subject, options]) =>
    ({ certificate: await world.certificate(name, { subject, ...options }), id: name })));
}

/** A host on the accessible desktop, and a user who has heard nothing yet. */
async function listenTo(t, { token = undefined, certificates = undefined, ...script } = {}) {
  const reader = await ScreenReader.start(desktop, world.cleanupOf(t), { program: /^QMChromeExtHost$/ });
  const host = token === null ? await world.host(t, { desktop, token })
    : (await world.hostWithFake(t, { certificates: certificates ?? await threeCertificates(), ...script }, { desktop })).host;
  if (token !== null) {
    await host.request({ text: "started" });
    await desktop.windowGone(WINDOW_TITLE);
    await reader.silence();
    reader.forget();
  }
  return { host, ears: new Ears(reader, desktop) };
}

/** All that was heard since the line `first` (as of Ears) must be the transcript of that name. */
async function expectHeard(ears, name, first) {
  await expectTranscript(await ears.heardFrom(first), new URL(`transcripts/${name}.txt`, import.meta.url));
}

const item = (start) => new RegExp(`^focus list item "${start}.*selected$`);

test("A certificate is chosen with the arrow keys, and the PIN is asked for by its name", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(SIGN);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Down", item("Ravi"));
  await ears.press("End", item("Meena"));
  await ears.press("Home", item("Asha"));
  await ears.press("Down", item("Ravi"));
  await ears.press("Return");
  await ears.enterPin("1234");
  assert.equal((await host.reply()).status_cd, 1);
  await expectHeard(ears, "choose-and-sign");
});

test("Tab goes from the list to the buttons and back, and Space presses the one that has the keyboard", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(CHOOSE);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Tab", CANCEL);
  await ears.press("Tab", OK);
  await ears.press("Tab", item("Asha Rao"));
  await ears.press("shift+Tab", OK);
  await ears.press("shift+Tab", CANCEL);
  await ears.press("space");
  assert.equal((await host.reply()).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
  await expectHeard(ears, "tab-and-cancel");
});

test("The keyboard is in the list at each request, and Escape is the key of Cancel", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(CHOOSE);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Tab", CANCEL);
  await ears.press("Escape");
  assert.equal((await host.reply()).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
  host.send(CHOOSE);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Down", item("Ravi"));
  await ears.press("Return");
  assert.equal(JSON.parse((await host.reply()).result).CKA_ID, "ravi");
  await expectHeard(ears, "second-request");
});

test("A click on a card is heard", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(CHOOSE);
  await ears.hear(LIST, item("Asha Rao"));
  await host.user.clickCard(1);
  await ears.hear(item("Ravi"));
  await ears.press("Escape");
  await host.reply();
  await expectHeard(ears, "click");
});

test("After a wrong PIN and after an empty one the next request asks again", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(SIGN);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Return");
  await ears.enterPin("4321");
  assert.equal((await host.reply()).status_cd, 0);
  host.send(SIGN);
  await ears.hear(item("Asha Rao"));
  await ears.press("Return");
  await ears.enterPin("");
  assert.deepEqual(await host.reply(), { status_cd: 0, result: FAILURE_PREFIX, nonce: "" });
  await expectHeard(ears, "wrong-and-empty-pin");
});

test("In the dialog for the PIN Tab goes on to the buttons, and Escape gives none", async (t) => {
  const { host, ears } = await listenTo(t);
  host.send(SIGN);
  await ears.hear(LIST, item("Asha Rao"));
  await ears.press("Return");
  await ears.hear(PIN);
  await ears.press("Tab", CANCEL, PIN_TITLE);
  await ears.press("Tab", OK, PIN_TITLE);
  await ears.press("Tab", PIN, PIN_TITLE);
  await ears.press("Escape", null, PIN_TITLE);
  assert.deepEqual(await host.reply(), { status_cd: 0, result: FAILURE_PREFIX, nonce: "" });
  await expectHeard(ears, "pin-dialog");
});

test("Without a token the loading is heard, and the window goes", async (t) => {
  const { host, ears } = await listenTo(t, { slots: [] });
  await waitFor("the loading to be heard", async () => {
    ears.reader.forget();
    assert.equal((await host.request(CHOOSE)).result, `${FAILURE_PREFIX}No slot with token attached.`);
    await ears.reader.silence();
    return ears.reader.lines().includes(LOADING);
  });
  await expectHeard(ears, "no-token", /^focus list item "Loading/);
});

test("A token without certificates leaves a list of that name, and Cancel", async (t) => {
  const { host, ears } = await listenTo(t, { certificates: [] });
  host.send(CHOOSE);
  await waitFor("the empty list", async () => (await host.logLines()).includes("0 items Loaded in Certificate List."));
  await ears.reader.silence();
  await ears.press("Escape");
  assert.equal((await host.reply()).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
  await expectHeard(ears, "no-certificates", null);
});

test("That a certificate has expired is heard", async (t) => {
  const { host, ears } = await listenTo(t, { certificates: (await threeCertificates()).slice(2) });
  host.send(CHOOSE);
  await ears.hear(LIST, item("Meena"));
  await ears.press("Return");
  await host.reply();
  await expectHeard(ears, "expired");
});

test("The box about a driver that is missing is read out", async (t) => {
  const { host, ears } = await listenTo(t, { token: null });
  await ears.hear(/^window alert/, OK);
  await desktop.key(await desktop.window("Exiting Quillmark - Error Loading Token Driver"), "Return");
  assert.deepEqual(await host.exit(), { code: 1, signal: null });
  await expectHeard(ears, "no-driver", /^focus push button "OK"/);
});
