/** What draws the documents. Its worker is a file of its own, pdfjs-worker.js. */
export { AnnotationMode, getDocument, GlobalWorkerOptions, OPS, PDFWorker } from "pdfjs-dist/legacy/build/pdf.mjs";
