/** The part of pdf.js that reads documents, in a thread of its own. */
import "pdfjs-dist/legacy/build/pdf.worker.mjs";
