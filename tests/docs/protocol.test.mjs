// docs/protocol.md, word by word: its commands print what it says, and its conversation goes as it says.

import assert from "node:assert/strict";
import { symlink } from "node:fs/promises";
import { join } from "node:path";
import { test } from "node:test";

import { bin, product } from "../lib/quillmark.mjs";
import { NORMAL_END, World } from "../lib/kit.mjs";
import { blocksOf } from "./lib/blocks.mjs";

const world = World.forThisFile(product);
const blocks = await blocksOf("docs/protocol.md");

/** The commands, each with the output that stands below it. */
const commands = blocks.flatMap(({ language, content }, i) =>
  language === "sh" ? [{ command: content, output: blocks[i + 1].content }] : []);

test("The commands print what the document says", async (t) => {
  assert.ok(commands.length > 0);
  for (const { command, output } of commands) {
    const folder = await world.cleanupOf(t).folder("protocol");
    for (const name of ["QMChromeExtHost", "QMTokenDriver.so", "QMLogo.png"]) await symlink(join(bin, name), join(folder, name));
    const { stdout } = await world.desktop.run("bash", ["-c", command], { cwd: folder });
    assert.equal(stdout.toString(), output, command);
  }
});

test("The conversation goes as the document says", async (t) => {
  const token = await world.softToken(t, { pairs: [[await world.certificate("Asha Rao", { email: "asha@example.com" }), "a1b2c3"]] });
  const host = await world.host(t, { token });
  const requests = blocks.flatMap((block, i) => (block.info.startsWith("json request") ? [{ ...block, reply: blocks[i + 1] }] : []));
  assert.ok(requests.length > 0);

  let thumbprint = "";
  for (const { info, content, reply: expected } of requests) {
    assert.equal(expected.info, "json reply", `no reply stands below ${content}`);
    host.send(content.trim().replace("<CertThumbPrint>", thumbprint));
    if (info.includes("and OK")) await host.user.clickOk();
    if (info.includes("and Cancel")) await host.user.clickCancel();
    if (info.includes("and the PIN")) await host.user.enterPin(token.pin);
    const reply = await host.replyText();
    assert.match(reply, patternOf(expected.content.trim()), content);
    thumbprint = /CertThumbPrint\\":\\"(\w+)/.exec(reply)?.[1] ?? thumbprint;
  }
  assert.deepEqual(await host.finish(), NORMAL_END);
});

/** Matches the text alone, "…" standing for anything. */
function patternOf(text) {
  return new RegExp(`^${text.split("…").map((part) => part.replace(/[.*+?^${}()|[\]\\]/g, "\\$&")).join(".+")}$`);
}
