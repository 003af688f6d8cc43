/** What pdf.js draws of a document, and what it would leave out without a word. */

import { getDocument, GlobalWorkerOptions, OPS, PDFWorker } from "../libraries/pdfjs.js";
import { message } from "../src/messages.js";
import { refusal } from "../src/pdf/refusal.js";

const LIBRARIES = new URL("../libraries/", import.meta.url).href;
GlobalWorkerOptions.workerSrc = `${LIBRARIES}pdfjs-worker.js`;

// One for all documents: its start takes longer than to read a short one.
const worker = new PDFWorker({ verbosity: 0 });

// Where the worker stops in the middle of a page, pdf.js draws what there is until then and tells nobody. Its message says so:
// {stream: 5, targetName: the document's id}.
const STREAM_ERROR = 5;
const stopped = new Set();
const isWatched = worker.promise.then(() => worker.port.addEventListener("message", ({ data }) => {
  if (data.stream === STREAM_ERROR) stopped.add(data.targetName);
}));

/** Reads the document of these bytes, which are taken away. Throws DOCUMENT_REFUSED for one that cannot be drawn. */
export async function load(bytes) {
  await isWatched;
  const loading = getDocument({
    data: bytes,
    worker,
    cMapUrl: `${LIBRARIES}pdfjs/cmaps/`,
    standardFontDataUrl: `${LIBRARIES}pdfjs/standard_fonts/`,
    iccUrl: `${LIBRARIES}pdfjs/iccs/`,
    wasmUrl: `${LIBRARIES}pdfjs/wasm/`,
    useWasm: false,
    isEvalSupported: false,
    enableXfa: false,
    useSystemFonts: false,
    // It does not go on behind what it cannot read: see `checkComplete`.
    stopAtErrors: true,
  });
  try {
    const document = await loading.promise;
    return { document, first: (await document.getPage(1)).getViewport({ scale: 1 }) };
  } catch (error) {
    await loading.destroy();
    throw refusal("refusal_drawing", error.message);
  }
}

/** Throws DOCUMENT_REFUSED for a document that cannot be drawn, or has other pages than these for pdf.js. */
export async function checkDrawable(bytes, pages) {
  const { document } = await load(bytes);
  const { numPages } = document;
  await document.loadingTask.destroy();
  if (numPages !== pages) throw refusal("refusal_other_pages");
}

/**
 * Throws when something in a page of pdf.js cannot be read, which drawing it would leave out. Pages are read at the same time: what
 * is wrong with one may be told of its neighbour.
 */
export async function checkComplete(document, proxy) {
  const { fnArray, argsArray } = await proxy.getOperatorList();
  if (stopped.has(document.loadingTask.docId)) throw new Error(message("drawing_something"));
  // A note with an error is left out as a whole.
  const notes = new Set(argsArray.filter((_, i) => fnArray[i] === OPS.beginAnnotation).map(([id]) => id));
  const annotations = await proxy.getAnnotations({ intent: "display" });
  if (annotations.some(({ id, hasAppearance }) => hasAppearance && !notes.has(id))) throw new Error(message("drawing_note"));
  const needed = argsArray.filter((_, i) => fnArray[i] === OPS.dependency).flat();
  for (const id of needed) {
    const objects = id.startsWith("g_") ? proxy.commonObjs : proxy.objs;
    const object = await new Promise((resolve) => objects.get(id, resolve));
    if (object === null) throw new Error(message("drawing_picture"));
    // In the place of a font there are the words of an error.
    if (typeof object === "string") throw new Error(message("drawing_font"));
  }
}
