// The select-certificate window and the user's answer.

import assert from "node:assert/strict";
import { test } from "node:test";

import {
  CANCEL_TEXT, cancelChoice, CHOOSE, chooseFirst, CK, errorLine, FAILURE_PREFIX, NORMAL_END, openWindow, run, sleep,
  waitFor, WINDOW_TITLE,
} from "../lib/kit.mjs";
import { withFake, world } from "./lib/world.mjs";

const RED = "ff0000";

async function twoCertificates() {
  return [
    { certificate: await world.certificate(), id: "first" },
    { certificate: await world.certificate("expired", { to: "20231115000000Z" }), id: "second" },
  ];
}

function idOf(reply) {
  return JSON.parse(reply.result).CKA_ID;
}

test("The first request loads the list and selects the first card", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: await twoCertificates() });
  assert.equal(idOf(await chooseFirst(host, CHOOSE)), "first");
  const steps = ["Opening Select Certificate Dialog", "0 Items in Certificate List. Loading List...",
    "Entering TokenOpenSession()", "Trying to Get Token Slot List", "Found slots with the token attached.",
    "Get the slots list.", "Exiting Method TokenOpenSession()", "2 items Loaded in Certificate List.",
    "Selected Certificate Index: 0", "Select Certificate Dialog Closed"];
  const lines = await host.logLines();
  assert.deepEqual(lines.filter((line) => steps.includes(line)), steps);
});

test("While the token is read the window says so", async (t) => {
  const faults = [{ call: "C_Initialize", delay: 5000 }];
  const { host, token } = await world.hostWithFake(t, { faults });
  host.send(CHOOSE);
  await waitFor("the list to be loaded", async () => (await host.logLines()).includes("Entering TokenOpenSession()"));
  const id = await world.desktop.window(WINDOW_TITLE);
  // The placeholder stands in the middle of the list's first row, where no card has anything.
  const middle = { x: 230, y: 90, width: 140, height: 40 };
  await waitFor("black on white", async () => {
    const colours = await world.desktop.colours(id, middle);
    return colours.includes("000000") && colours.includes("ffffff");
  });
  assert.deepEqual(await token.calls(), []);
  await host.user.clickOk();
  assert.equal(idOf(await host.reply()), "01");
});

test("Later requests show the same cards at once, without the token", withFake(async ({ host, token }) => {
  await chooseFirst(host, CHOOSE);
  const calls = (await token.calls()).length;
  for (let i = 0; i < 2; ++i) assert.equal(idOf(await chooseFirst(host, CHOOSE)), "01");
  assert.equal((await token.calls()).length, calls);
}));

test("Cancel is an answer, whatever is selected", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: await twoCertificates() });
  for (const move of [async () => {}, async () => host.user.clickCard(1)]) {
    await openWindow(host, CHOOSE);
    await move();
    await host.user.clickCancel();
    assert.deepEqual(await host.reply(), { status_cd: 0, result: `${FAILURE_PREFIX}${CANCEL_TEXT}`, nonce: "" });
    await world.desktop.windowGone(WINDOW_TITLE);
  }
  assert.ok((await host.logLines()).includes("CANCEL Clicked"));
});

test("A card is chosen with a click and OK", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: await twoCertificates() });
  host.send(CHOOSE);
  await host.user.clickCard(1);
  await host.user.clickOk();
  assert.equal(idOf(await host.reply()), "second");
  assert.ok((await host.logLines()).includes("Selected Certificate Index: 1"));
});

test("A double click on a card is a click and OK", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: await twoCertificates() });
  for (const [row, id] of [[1, "second"], [0, "first"]]) {
    host.send(CHOOSE);
    await host.user.clickCard(row, 2);
    assert.equal(idOf(await host.reply()), id);
    await world.desktop.windowGone(WINDOW_TITLE);
  }
});

test("The answer of an earlier request does not answer a later one", withFake(async ({ host }) => {
  await chooseFirst(host, CHOOSE);
  assert.equal((await cancelChoice(host, CHOOSE)).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
  assert.equal(idOf(await chooseFirst(host, CHOOSE)), "01");
}));

test("The window has no close box and stays above the others", withFake(async ({ host }) => {
  const id = await openWindow(host, CHOOSE);
  const [, functions] = (await world.desktop.property(id, "_MOTIF_WM_HINTS")).match(/= 0x\w+, 0x(\w+)/);
  assert.equal(parseInt(functions, 16) & 0x20, 0, "closing is not among the functions that the window offers");
  await world.desktop.above(id);
  await host.user.clickCancel();
  await host.reply();
}));

test("A window manager that closes the window all the same gets no answer from it", withFake(async ({ host }) => {
  const id = await openWindow(host, CHOOSE);
  await world.desktop.key(id, "alt+F4");
  await sleep(600);
  await host.user.clickOk();
  assert.equal(idOf(await host.reply()), "01");
  assert.deepEqual(await host.finish(), NORMAL_END);
}));

test("OK without a row does nothing; only Cancel leaves an empty list, which the next request loads again", async (t) => {
  const { host, token } = await world.hostWithFake(t, { certificates: [] });
  host.send(CHOOSE);
  await waitFor("the empty list", async () => (await host.logLines()).includes("0 items Loaded in Certificate List."));
  await host.user.clickOkWithoutCards();
  await waitFor("the click", async () => (await host.logLines()).includes("Selected Certificate Index: -1"));
  assert.equal((await world.desktop.windows(WINDOW_TITLE)).length, 1);
  await host.user.clickCancel();
  assert.equal((await host.reply()).result, `${FAILURE_PREFIX}${CANCEL_TEXT}`);
  await cancelChoice(host, CHOOSE);
  assert.equal((await token.calls("C_FindObjectsInit")).length, 2);
});

test("Impatient double clicks while the list is loading end nothing", withFake(async ({ host }) => {
  host.send(CHOOSE);
  const id = await world.desktop.window(WINDOW_TITLE);
  await world.desktop.click(id, 60, 110, 24); // 60 ms apart: through the loading and into the cards
  await waitFor("the list", async () => (await host.logLines()).includes("1 items Loaded in Certificate List."));
  const reply = host.reply();
  await sleep(1000);
  if ((await world.desktop.windows(WINDOW_TITLE)).length > 0) await host.user.clickOk();
  assert.equal(idOf(await reply), "01");
  assert.equal((await host.request({ text: "on" })).result, "QMHost Error: echo: on");
}));

for (const [what, act] of [
  ["A double click on the row", (desktop, id) => desktop.click(id, 300, 110, 2)],
  ["A click on OK", (desktop, id, host) => desktop.click(id, ...host.user.okButton)],
  ["The Return key", (desktop, id) => desktop.key(id, "Return")],
  ["The key of OK", (desktop, id) => desktop.key(id, "alt+o")],
  ["A button that is held over OK from", (desktop, id, host) => desktop.hold(id, ...host.user.okButton)],
]) {
  test(`${what} while the list is loading chooses nothing`, async (t) => {
    const { host } = await world.hostWithFake(t, { faults: [{ call: "C_Initialize", delay: 4000 }] });
    host.send(CHOOSE);
    await waitFor("the loading", async () => (await host.logLines()).includes("Entering TokenOpenSession()"));
    const id = (await world.desktop.windows(WINDOW_TITLE))[0];
    const letGo = await act(world.desktop, id, host);
    const loaded = (await host.logLines()).some((line) => line.endsWith("items Loaded in Certificate List."));
    assert.ok(!loaded, "the list was loaded too early for this test");
    await host.user.window();
    await letGo?.();
    await sleep(1500);
    assert.equal((await world.desktop.windows(WINDOW_TITLE)).length, 1, "the window waits for a choice");
    await host.user.clickOk();
    assert.equal(idOf(await host.reply()), "01");
  });
}

for (const key of ["Return", "alt+o"]) {
  test(`${key} chooses once the cards are there, at every request`, withFake(async ({ host }) => {
    for (let i = 0; i < 3; ++i) {
      host.send(CHOOSE);
      await world.desktop.key(await host.user.window(), key);
      assert.equal(idOf(await host.reply()), "01");
      await world.desktop.windowGone(WINDOW_TITLE);
    }
  }));
}

test("The second click of a double click on OK does not answer the next request", withFake(async ({ host }) => {
  host.send(CHOOSE);
  await world.desktop.click(await host.user.window(), ...host.user.okButton, 2);
  await host.reply();
  await openWindow(host, CHOOSE);
  await sleep(1500);
  assert.equal((await world.desktop.windows(WINDOW_TITLE)).length, 1, "the window waits for a choice");
  await host.user.clickCancel();
  await host.reply();
}));

test("A window that the user has moved stays there", withFake(async ({ host }) => {
  const first = await openWindow(host, CHOOSE);
  await run("xdotool", ["windowmove", "--sync", first, "40", "60"], { env: { ...process.env, ...world.desktop.env } });
  await sleep(500);
  const moved = await world.desktop.geometry(first);
  await host.user.clickOk();
  await host.reply();
  for (let i = 0; i < 2; ++i) {
    host.send(CHOOSE);
    assert.deepEqual(await world.desktop.geometry(await host.user.window()), moved);
    await host.user.clickOk();
    await host.reply();
  }
}));

test("After a failure while loading, the next request loads the list", async (t) => {
  const faults = [{ call: "C_FindObjectsInit", nth: 1, rv: CK.CKR_GENERAL_ERROR }];
  const { host } = await world.hostWithFake(t, { faults });
  const line = errorLine("BuildTokenCertList - C_FindObjectsInit", CK.CKR_GENERAL_ERROR);
  assert.equal((await host.request(CHOOSE)).result, `QMHost Error: Error  in GetSelCertFromToken(): ${line}`);
  await world.desktop.windowGone(WINDOW_TITLE);
  assert.equal(idOf(await chooseFirst(host, CHOOSE)), "01");
});

test("An expired certificate is shown in red, a valid one is not", async (t) => {
  const { host } = await world.hostWithFake(t, { certificates: await twoCertificates() });
  await openWindow(host, CHOOSE);
  const hasRed = async (row) => (await host.user.cardColours(row)).includes(RED);
  assert.ok(!await hasRed(0));
  await waitFor("the red", () => hasRed(1));
  await host.user.clickCancel();
  await host.reply();
});

test("A request is answered within a second of the click", withFake(async ({ host }) => {
  await chooseFirst(host, CHOOSE);
  const times = [];
  for (let i = 0; i < 5; ++i) {
    const id = await openWindow(host, CHOOSE);
    const before = Date.now();
    await world.desktop.click(id, ...host.user.cancelButton);
    await host.reply();
    times.push(Date.now() - before);
  }
  assert.ok(Math.min(...times) < 1000, `${times.join(", ")} ms`); // the machine may be busy with other things in between
}));

for (const [what, id] of [["is empty", ""], ["begins with a zero byte", "\0id"]]) {
  test(`The choice of a certificate whose CKA_ID ${what} is no choice`, async (t) => {
    const { host } = await world.hostWithFake(t, { certificates: [{ certificate: await world.certificate(), id }] });
    const reply = await chooseFirst(host, CHOOSE);
    assert.deepEqual([reply.status_cd, reply.result], [0, `${FAILURE_PREFIX}Select Certificate Response Empty.`]);
  });
}
