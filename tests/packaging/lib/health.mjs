// A made-up computer on which everything is right, and what the doctor says of it.

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import { join } from "node:path";

import { registration } from "../../lib/quillmark.mjs";
import { Computer } from "./computer.mjs";

const [chromiumId] = registration.chromiumExtensions;
const [firefoxId] = registration.firefoxExtensions;

export const CHROMIUM_PROFILE = ".config/chromium/Default/Preferences";
export const FIREFOX_PROFILE = ".config/mozilla/firefox/abc.default-esr/extensions.json";

/** What Chromium writes of the extension; `more` is what its entry has besides, `id` another id. */
export const inChromium = (more = {}, id = chromiumId) => ({
  extensions: { settings: { [id]: { disable_reasons: [], location: 1, manifest: { name: "Quillmark" }, ...more } } },
});

/** What Firefox writes of it. */
export const inFirefox = (more = {}) => ({
  addons: [{ id: firefoxId, active: true, userDisabled: false, defaultLocale: { name: "Quillmark" }, ...more }],
});

/** A computer on which everything is right, but for `options`; its browsers have the extension in a profile. */
export async function healthy(t, options) {
  const computer = await Computer.make(t, { more: { DISPLAY: ":stand-in" }, ...options });
  const browsers = options?.browsers ?? ["chromium", "firefox-esr"];
  if (browsers.includes("chromium")) await computer.write(join(computer.home, CHROMIUM_PROFILE), inChromium());
  if (browsers.some((name) => name.startsWith("firefox"))) await computer.write(join(computer.home, FIREFOX_PROFILE), inFirefox());
  await computer.layOut();
  await computer.tool("quillmark-browsers", "register");
  await computer.write(join(computer.root, "run/pcscd/pcscd.comm"), "");
  await mkdir(join(computer.home, ".config/pkcs11/modules"), { recursive: true });
  return computer;
}

/** The body of a test on such a computer. */
export function onHealthy(...args) {
  const body = args.pop();
  return async (t) => body(await healthy(t, ...args), t);
}

/** From now on a program of this name runs there, with a folder of its own. */
export const runs = (computer, name) =>
  computer.write(join(computer.root, "proc/77/cmdline"), `/usr/lib/${name}\0--user-data-dir=${computer.folder}/own folder\0`);

const STATUS = { can: 0, cannot: 1, unknown: 3 };

/** { verdict, browsers: verdicts by title, findings, problems }; `options` go to the doctor. */
export async function examine(computer, ...options) {
  const { code, out, err } = await computer.tool("quillmark-doctor", "--json", ...options);
  assert.equal(err, "");
  const { verdict, browsers, findings } = JSON.parse(out);
  assert.equal(code, STATUS[verdict]);
  const verdicts = Object.fromEntries(browsers.map((each) => [each.title, each.verdict]));
  return { verdict, browsers: verdicts, findings, problems: findings.filter(({ level }) => level !== "ok") };
}

/** The problems that there are but the expired certificate, which is there on purpose. */
export async function problemsOf(computer) {
  const { problems } = await examine(computer);
  return problems.filter(({ text }) => !text.includes("CN=Old"));
}

/** The one such problem. */
export async function onlyProblem(computer) {
  const { verdict } = await examine(computer);
  const problems = await problemsOf(computer);
  assert.equal(problems.length, 1, JSON.stringify(problems, null, 1));
  return { verdict, ...problems[0] };
}

/** Holds that this is the one problem: { verdict, text, remedy, command }, text as a pattern, each when given. */
export async function assertProblem(computer, { text, ...exact }) {
  const problem = await onlyProblem(computer);
  assert.match(problem.text, text);
  for (const [member, value] of Object.entries(exact)) assert.equal(problem[member], value);
}
