/** Bundles the libraries of npm that the extension uses, as package-lock.json has them. */
import { build } from "esbuild";
import { cp, mkdir, readdir, readFile, writeFile } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const ROOT = join(dirname(fileURLToPath(import.meta.url)), "..");
const SOURCE = "extension/libraries";

// What pdf.js fetches when a document wants it: encodings of Asian fonts, the standard fonts, and a decoder of JPEG 2000 that
// the content policy lets run.
const PDFJS = join(ROOT, "node_modules/pdfjs-dist");
const PDFJS_DATA = ["cmaps", "standard_fonts", "iccs"];
const PDFJS_DECODER = ["openjpeg_nowasm_fallback.js", "LICENSE_OPENJPEG", "LICENSE_PDFJS_OPENJPEG"];

// The PDF library has no module that does anything but define; without this word all of it would come along.
const onlyWhatIsUsed = {
  name: "only-what-is-used",
  setup({ onResolve, resolve }) {
    onResolve({ filter: /./ }, async ({ path, pluginData, ...options }) => {
      if (pluginData === "resolved" || !/pdf-lib/.test(path + options.importer)) return undefined;
      const result = await resolve(path, { ...options, pluginData: "resolved" });
      return { ...result, sideEffects: false };
    });
  },
};

/** Puts each of extension/libraries with all that it imports into one file of the same name in `target`, and the licences. */
export async function bundleLibraries(target) {
  const entries = (await readdir(join(ROOT, SOURCE))).map((name) => `${SOURCE}/${name}`);
  const { metafile } = await build({
    absWorkingDir: ROOT,
    entryPoints: entries,
    outdir: target,
    bundle: true,
    format: "esm",
    target: ["chrome120", "firefox128"],
    charset: "utf8",
    legalComments: "inline",
    external: ["node:*", "fs", "url", "module", "process", "@napi-rs/canvas", "path2d"],
    plugins: [onlyWhatIsUsed],
    metafile: true,
    logLevel: "error",
  });
  for (const name of PDFJS_DATA) await cp(join(PDFJS, name), join(target, "pdfjs", name), { recursive: true });
  for (const name of PDFJS_DECODER) await cp(join(PDFJS, "wasm", name), join(target, "pdfjs/wasm", name));
  await writeLicences(target, metafile);
}

async function writeLicences(target, { outputs }) {
  const folder = join(target, "licences");
  await mkdir(folder, { recursive: true });
  const isUsed = ([, { bytesInOutput }]) => bytesInOutput > 0;
  const used = Object.values(outputs).flatMap(({ inputs }) => Object.entries(inputs).filter(isUsed).map(([file]) => file));
  for (const name of packagesOf(used)) {
    const place = join(ROOT, "node_modules", name);
    const [licence] = (await readdir(place)).filter((file) => /^licen[cs]e/i.test(file));
    const { version, license } = JSON.parse(await readFile(join(place, "package.json"), "utf8"));
    const text = licence ? await readFile(join(place, licence), "utf8") : "The package holds no more than this name.\n";
    await writeFile(join(folder, `${name.replace("/", "-")}.txt`), `${name} ${version}, ${license}\n\n${text}`);
  }
}

const packagesOf = (files) =>
  new Set(files.map((file) => /.*node_modules\/((?:@[^/]+\/)?[^/]+)/.exec(file)?.[1]).filter(Boolean));
