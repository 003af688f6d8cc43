// Gives the benchmarks a desktop and tokens, runs them, and prints the table.
//
//   node benchmarks/run.mjs <folder of the host> <folder of these programs> [--json] [<part of a row's name>]

import { readFile, writeFile } from "node:fs/promises";
import { cpus, release, totalmem } from "node:os";
import { join } from "node:path";
import { spawn } from "node:child_process";
import { once } from "node:events";

import { Cleanup } from "../tests/lib/cleanup.mjs";
import { Desktop } from "../tests/lib/display/desktop.mjs";
import { run } from "../tests/lib/process.mjs";
import { SOFTHSM, SoftToken } from "../tests/lib/token/soft-token.mjs";

const TOKEN_SIZES = [1, 10, 100, 1000];
const FILL_TIMEOUT = 600_000; // milliseconds: the token writes a file for each certificate, and waits for the disk

/** The Debian packages whose versions say what was measured. */
const PACKAGES = { wxWidgets: "libwxgtk3.2-1", OpenSSL: "libssl3", "SoftHSM": "softhsm2", "nlohmann/json": "nlohmann-json3-dev",
  pugixml: "libpugixml-dev", "p11-kit": "libp11-kit0", "PKCS#11 engine": "libengine-pkcs11-openssl", GTK: "libgtk-3-0" };

async function main(bin, programs, ...options) {
  const json = options.includes("--json");
  const filter = options.filter((option) => option !== "--json");
  const cleanup = new Cleanup();
  for (const signal of ["SIGINT", "SIGTERM"]) process.once(signal, () => cleanup.run().finally(() => process.exit(1)));
  try {
    const desktop = await Desktop.start(cleanup);
    const setting = await makeSetting(bin, programs, await cleanup.folder("bench"));
    const { rows, failed } = await measure(programs, setting, filter, desktop.env, cleanup);
    const machine = await describeMachine();
    console.log(json ? JSON.stringify({ machine, rows }, null, 2) : table(machine, rows));
    if (failed) throw new Error("a benchmark went wrong, and the rows after it are missing");
  } finally {
    await cleanup.run();
  }
}

/** Makes the tokens and writes down, for the programs, where everything is. Gives the file's name. */
async function makeSetting(bin, programs, work) {
  const setting = { bin, programs, work, softhsm: SOFTHSM, pin: "1234", tokens: [] };
  console.error("making the tokens");
  for (const certificates of TOKEN_SIZES) {
    const folder = join(work, `token-${certificates}`);
    const { env } = await SoftToken.create(folder, { pin: setting.pin });
    const signer = join(folder, "signer.pem");
    await run(join(programs, "bench-fill-token"), [SOFTHSM, setting.pin, String(certificates), signer],
      { env: { ...process.env, ...env }, timeout: FILL_TIMEOUT });
    setting.tokens.push({ certificates, env, signer });
  }
  const file = join(work, "setting.json");
  await writeFile(file, JSON.stringify(setting));
  return file;
}

/** Runs the programs: { rows, failed }. */
async function measure(programs, setting, filter, env, cleanup) {
  const driver = spawn(join(programs, "bench-rows"), [setting, ...filter], {
    env: { ...process.env, ...env },
    stdio: ["ignore", "pipe", "inherit"],
  });
  cleanup.addChild(driver);
  let output = "";
  driver.stdout.on("data", (chunk) => (output += chunk));
  const [status] = await once(driver, "close");
  return { rows: output.split("\n").filter(Boolean).map((line) => JSON.parse(line)), failed: status !== 0 };
}

async function describeMachine() {
  const { stdout } = await run("dpkg-query", ["-W", "-f", "${Package} ${Version}\n", ...Object.values(PACKAGES)]);
  const installed = Object.fromEntries(stdout.toString().trim().split("\n").map((line) => line.split(" ")));
  return {
    processor: `${cpus().length} x ${cpus()[0].model}`,
    memory: `${Math.round(totalmem() / 2 ** 30)} GiB`,
    system: `${/PRETTY_NAME="(.*)"/.exec(await readFile("/etc/os-release", "utf8"))[1]}, Linux ${release()}`,
    "large pages": /\[(.*)\]/.exec(await readFile("/sys/kernel/mm/transparent_hugepage/enabled", "utf8").catch(() => ""))?.[1],
    compiler: (await run("c++", ["--version"])).stdout.toString().split("\n")[0],
    ...Object.fromEntries(Object.entries(PACKAGES).map(([name, debian]) => [name, installed[debian]])),
  };
}

function table(machine, rows) {
  const cells = rows.map(({ what, ours, reference, ratio, target, higher_is_better }) => [
    what, ours.toPrecision(4), reference.toPrecision(4), ratio.toFixed(2),
    `${higher_is_better ? "at least" : "at most"} ${target}`, (higher_is_better ? ratio >= target : ratio <= target) ? "" : "missed",
  ]);
  const all = [["what", "ours", "reference", "ratio", "target", ""], ...cells];
  const widths = all[0].map((_, column) => Math.max(...all.map((row) => row[column].length)));
  const lines = all.map((row) => row.map((cell, i) => (i === 0 ? cell.padEnd(widths[i]) : cell.padStart(widths[i]))).join("  ").trimEnd());
  const heading = Object.entries(machine).map(([name, value]) => `${name}: ${value}`);
  return [...heading, "", ...lines].join("\n");
}

main(...process.argv.slice(2)).catch((error) => {
  console.error(`error: ${error.message}`);
  process.exitCode = 1;
});
