/** The part of pdf.js that reads documents, in a thread of its own. */
export { WorkerMessageHandler } from "pdfjs-dist/legacy/build/pdf.worker.mjs";
