// PDF documents by as many makers as Debian's packages and npm give, each made anew. `made/` beside this file holds those whose
// makers are too large to be installed for a test, or are in no newer Debian; README.md there says how they were made.

import { readdir, readFile, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

import { SignPdf } from "@signpdf/signpdf";
import { Signer } from "@signpdf/utils";
import { PDFDocument as CantooDocument } from "@cantoo/pdf-lib";
import { PDFDocument, PDFName } from "pdf-lib";
import PDFKit from "pdfkit";

import { makePdf } from "../../lib/kit.mjs";
import { run } from "./sign.mjs";

const MADE = fileURLToPath(new URL("made/", import.meta.url));
const LINES = ["A contract between two parties", "It has a few lines, and a date: 21 November 2026"];

const SVG = `<svg xmlns="http://www.w3.org/2000/svg" width="300" height="200"><rect width="300" height="200" fill="#eee"/>
<text x="20" y="60" font-family="DejaVu Sans" font-size="18">${LINES[0]}</text><circle cx="200" cy="140" r="30" fill="teal"/></svg>`;
const HTML = `<!doctype html><meta charset="utf-8"><title>A contract</title><h1>${LINES[0]}</h1><p>${LINES[1]}</p>`;
const POSTSCRIPT = `%!PS\n/Helvetica findfont 18 scalefont setfont 72 700 moveto (${LINES[0]}) show showpage
/Times-Roman findfont 12 scalefont setfont 72 700 moveto (${LINES[1]}) show showpage\n`;
const LATEX = `\\documentclass{article}\\begin{document}\\section{${LINES[0]}}${LINES[1]}\\newpage $\\int_0^1 x^2\\,dx$\\end{document}\n`;
const GROFF = `.TL\n${LINES[0]}\n.PP\n${LINES[1]}\n.bp\n.PP\nThe second page\n`;
const REPORTLAB = `
import sys
from reportlab.pdfgen import canvas
page = canvas.Canvas(sys.argv[1], pageCompression=int(sys.argv[2]))
page.drawString(72, 700, "${LINES[0]}")
if sys.argv[3] == "form": page.acroForm.textfield(name="place", x=72, y=600, width=200, height=20)
page.bookmarkPage("start")
page.addOutlineEntry("Start", "start", 0)
page.showPage()
page.setPageRotation(90)
page.drawString(72, 500, "A page on its side")
page.save()
`;
const CAIRO = `
import cairo, sys
surface = cairo.PDFSurface(sys.argv[1], 400, 300)
surface.restrict_to_version({"1.4": cairo.PDFVersion.VERSION_1_4, "1.5": cairo.PDFVersion.VERSION_1_5}[sys.argv[2]])
context = cairo.Context(surface)
context.move_to(30, 60)
context.show_text("${LINES[0]}")
context.show_page()
surface.finish()
`;

/** Makers of documents: each writes the file `to`; `folder` is for what else they need. */
const MAKERS = {
  "pdf-lib, tables": (to) => withLibrary(PDFDocument, to, { useObjectStreams: false }),
  "pdf-lib, streams": (to) => withLibrary(PDFDocument, to, { useObjectStreams: true }),
  "pdf-lib fork": (to) => withLibrary(CantooDocument, to, { useObjectStreams: true }),
  "pdf-lib, a form": (to) => withLibrary(PDFDocument, to, {}, (document) => {
    const field = document.getForm().createTextField("place");
    field.setText("Chennai");
    field.addToPage(document.getPage(0), { x: 60, y: 500 });
    document.getForm().createCheckBox("agreed").addToPage(document.getPage(0), { x: 60, y: 450 });
  }),
  "pdf-lib, an attachment": (to) => withLibrary(PDFDocument, to, {}, (document) => document.attach(Buffer.from("abc"), "notes.txt")),
  "pdf-lib, a script": (to) => withLibrary(PDFDocument, to, {}, (document) => document.addJavaScript("main", "app.alert(1)")),
  "pdf-lib, a list of annotations apart": (to) => withLibrary(PDFDocument, to, {}, (document) => {
    const { context } = document;
    document.getPage(0).node.set(PDFName.of("Annots"), context.register(context.obj([])));
  }),
  "PDFKit": async (to) => {
    const document = new PDFKit({ info: { Title: LINES[0] } });
    const pieces = document.text(LINES[0]).addPage().text(LINES[1]);
    document.end();
    await writeFile(to, Buffer.concat(await pieces.toArray()));
  },
  "signed before by another library": async (to, folder, signer) => {
    class Other extends Signer {
      sign = async (covered) => Buffer.from(await signer.cms(covered));
    }
    await writeFile(to, await new SignPdf().sign(await makePdf(LINES), new Other()));
  },
  "ghostscript, PDF 1.3": (to, folder) => ghostscript(to, folder, "1.3"),
  "ghostscript, PDF 1.4": (to, folder) => ghostscript(to, folder, "1.4"),
  "ghostscript, PDF 1.5": (to, folder) => ghostscript(to, folder, "1.5"),
  "ghostscript, PDF 1.7": (to, folder) => ghostscript(to, folder, "1.7"),
  "ghostscript, PDF 2.0": (to, folder) => ghostscript(to, folder, "2.0"),
  "LaTeX": (to, folder) => latex(to, folder, ""),
  "LaTeX, PDF 1.4": (to, folder) => latex(to, folder, "\\pdfminorversion=4 \\pdfobjcompresslevel=0 "),
  "LaTeX, PDF 1.7": (to, folder) => latex(to, folder, "\\pdfminorversion=7 "),
  "groff": async (to, folder) => writeFile(to, (await run("groff", ["-Tpdf", "-ms", await file(folder, "in.ms", GROFF)])).stdout),
  "cairo, PDF 1.4": (to) => run("/usr/bin/python3", ["-c", CAIRO, to, "1.4"]),
  "cairo, PDF 1.5": (to) => run("/usr/bin/python3", ["-c", CAIRO, to, "1.5"]),
  "librsvg": async (to, folder) => run("rsvg-convert", ["-f", "pdf", "-o", to, await file(folder, "in.svg", SVG)]),
  "ReportLab": (to) => run("/usr/bin/python3", ["-c", REPORTLAB, to, "1", "plain"]),
  "ReportLab, not packed": (to) => run("/usr/bin/python3", ["-c", REPORTLAB, to, "0", "plain"]),
  "ReportLab, a form": (to) => run("/usr/bin/python3", ["-c", REPORTLAB, to, "1", "form"]),
  "WeasyPrint": async (to, folder) => run("weasyprint", [await file(folder, "in.html", HTML), to]),
  "img2pdf": async (to, folder) => {
    await run("convert", ["-size", "300x200", "gradient:red-white", join(folder, "in.png")]);
    await run("img2pdf", [join(folder, "in.png"), "-o", to]);
  },
  "MuPDF, cleaned": (to, folder) => from("ReportLab", folder, (source) => run("mutool", ["clean", "-gg", "-z", source, to])),
  "MuPDF, linearised input": (to, folder) => from("qpdf, linearised", folder, (source) => run("mutool", ["clean", source, to])),
  "poppler, drawn by cairo": (to, folder) => from("ReportLab", folder, (source) => run("pdftocairo", ["-pdf", source, to])),
  "poppler, united": (to, folder) => from("ReportLab", folder, (source) => run("pdfunite", [source, source, to])),
  "poppler, separated": (to, folder) => from("ReportLab", folder, (source) => run("pdfseparate", ["-f", "1", "-l", "1", source, to])),
  "qpdf, linearised": (to, folder) => qpdf(to, folder, "--linearize"),
  "qpdf, linearised, object streams": (to, folder) => qpdf(to, folder, "--linearize", "--object-streams=generate"),
  "qpdf, object streams": (to, folder) => qpdf(to, folder, "--object-streams=generate"),
  "qpdf, PDF 2.0": (to, folder) => qpdf(to, folder, "--force-version=2.0", "--object-streams=generate"),
  "qpdf, laid out": (to, folder) => qpdf(to, folder, "--qdf"),
  "qpdf, two revisions": (to, folder) => from("qpdf, object streams", folder, (source) => revise(source, to)),
};

/** Makes all documents in the signer's folder: [{maker, bytes}]. */
export async function makeCorpus(signer) {
  const { folder } = signer;
  const documents = [];
  for (const [maker, make] of Object.entries(MAKERS)) {
    const to = join(folder, "made.pdf");
    await make(to, folder, signer);
    documents.push({ maker, bytes: await readFile(to) });
  }
  for (const name of (await readdir(MADE)).filter((each) => each.endsWith(".pdf")).sort()) {
    documents.push({ maker: name.replace(/\.pdf$/, ""), bytes: await readFile(join(MADE, name)) });
  }
  return documents;
}

async function file(folder, name, content) {
  await writeFile(join(folder, name), content);
  return join(folder, name);
}

async function from(maker, folder, work) {
  const source = join(folder, `${maker.replaceAll(/\W/g, "-")}.pdf`);
  await MAKERS[maker](source, folder);
  return work(source);
}

async function withLibrary(Library, to, options, more = () => {}) {
  const document = await Library.create();
  for (const line of LINES) document.addPage([400, 300]).drawText(line, { x: 20, y: 200, size: 12 });
  await more(document);
  await writeFile(to, await document.save(options));
}

async function ghostscript(to, folder, version) {
  const source = await file(folder, "in.ps", POSTSCRIPT);
  await run("gs", ["-q", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pdfwrite", `-dCompatibilityLevel=${version}`, `-o${to}`, source]);
}

async function latex(to, folder, first) {
  const source = await file(folder, "in.tex", first + LATEX);
  await run("pdflatex", ["-interaction=batchmode", "-output-directory", folder, "-jobname", "latex", source]);
  await writeFile(to, await readFile(join(folder, "latex.pdf")));
}

const qpdf = (to, folder, ...options) => from("ReportLab", folder, (source) => run("qpdf", [...options, source, to]));

// A second revision by the library's own incremental update.
async function revise(source, to) {
  const document = await CantooDocument.load(await readFile(source), { forIncrementalUpdate: true });
  document.getPage(0).drawText("Added later", { x: 72, y: 300 });
  await writeFile(to, await document.save());
}
