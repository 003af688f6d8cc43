/** Draws a document's pages: those in sight and their neighbours, however many there are. */

import { AnnotationMode, getDocument, GlobalWorkerOptions, PDFWorker } from "../libraries/pdfjs.js";
import { refusal } from "../src/pdf/refusal.js";

const LIBRARIES = new URL("../libraries/", import.meta.url).href;
GlobalWorkerOptions.workerSrc = `${LIBRARIES}pdfjs-worker.js`;

// One for all documents: its start takes longer than to read a short one.
const worker = new PDFWorker();

/** Above this many dots a page is drawn coarser than the screen is. */
const MAX_DOTS = 16_000_000;

/** How far around the window pages are drawn already. */
const MARGIN = "600px";

const MARGIN_OF_PAGE = 10;
const ZOOMS = [0.25, 0.5, 0.75, 1, 1.25, 1.5, 2, 3, 4];

/** Reads the document of these bytes, which are taken away. Throws DOCUMENT_REFUSED for one that cannot be drawn. */
async function load(bytes) {
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
  });
  try {
    const document = await loading.promise;
    return { document, first: (await document.getPage(1)).getViewport({ scale: 1 }) };
  } catch (error) {
    await loading.destroy();
    throw refusal(`it cannot be drawn (${error.message}).`);
  }
}

/** Throws DOCUMENT_REFUSED for a document that cannot be drawn, or has other pages than these for pdf.js. */
export async function checkDrawable(bytes, pages) {
  const { document } = await load(bytes);
  const { numPages } = document;
  await document.loadingTask.destroy();
  if (numPages !== pages) throw refusal("readers find different pages in it. Export it once more.");
}

export class PagesView {
  #container;
  #onPage;
  #onBroken;
  #document;
  #pages = [];
  #observer;
  #zoom = 1;

  /** `onPage(number, count)` is called with the page in sight. */
  constructor(container, onPage) {
    this.#container = container;
    this.#onPage = onPage;
    container.addEventListener("scroll", () => this.#tellPage());
    new ResizeObserver(() => this.#layOut()).observe(container);
  }

  /**
   * Shows the document of these bytes, which are taken away; resolves when its first pages are drawn. `onBroken(number)` is
   * called with a page that cannot be drawn, then or later.
   */
  async show(bytes, { keepsPlace = false, onBroken }) {
    const place = keepsPlace ? this.#container.scrollTop : 0;
    this.#container.setAttribute("aria-busy", "true");
    const { document, first } = await load(bytes);
    await this.close();
    this.#document = document;
    this.#onBroken = onBroken;
    this.#pages = Array.from({ length: document.numPages }, (_, i) => this.#makePage(i, first));
    this.#container.replaceChildren(...this.#pages.map(({ element }) => element));
    this.#observer = new IntersectionObserver((entries) => this.#look(entries), { root: this.#container, rootMargin: MARGIN });
    this.#layOut();
    this.#container.scrollTop = place;
    const start = this.#pages[Math.max(0, this.#pageInSight() - 1)];
    for (const { element } of this.#pages) this.#observer.observe(element);
    await this.#draw(start);
    this.#container.setAttribute("aria-busy", "false");
    this.#tellPage();
  }

  async close() {
    this.#observer?.disconnect();
    this.#container.replaceChildren();
    this.#pages = [];
    const document = this.#document;
    this.#document = undefined;
    await document?.loadingTask.destroy();
  }

  /** Makes the pages larger (1) or smaller (-1). */
  zoom(step) {
    const at = ZOOMS.indexOf(this.#zoom) + step;
    if (ZOOMS[at] === undefined) return this.#zoom;
    const { scrollTop, scrollHeight } = this.#container;
    this.#zoom = ZOOMS[at];
    this.#layOut();
    this.#container.scrollTop = (scrollTop / scrollHeight) * this.#container.scrollHeight;
    return this.#zoom;
  }

  /** Which page is where: {page (from 0), viewport, box} of a page's element. */
  pageOf(element) {
    const page = this.#pages.find((each) => each.element === element);
    return page?.viewport && { page: page.index, viewport: page.viewport, box: element.getBoundingClientRect() };
  }

  #makePage(index, { width, height }) {
    const element = document.createElement("div");
    element.className = "page";
    element.dataset.page = String(index + 1);
    return { index, element, width, height };
  }

  #layOut() {
    const room = this.#container.clientWidth - 2 * MARGIN_OF_PAGE;
    const widest = Math.max(1, ...this.#pages.map(({ width }) => width));
    const scale = (room / widest) * this.#zoom;
    for (const page of this.#pages) {
      page.scale = scale;
      page.element.style.width = `${page.width * scale}px`;
      page.element.style.height = `${page.height * scale}px`;
      if (page.canvas) void this.#draw(page);
    }
  }

  #look(entries) {
    for (const { target, isIntersecting } of entries) {
      const page = this.#pages[Number(target.dataset.page) - 1];
      if (isIntersecting) void this.#draw(page);
      else this.#forget(page);
    }
  }

  /** Resolves when the page is drawn in the size that it has. */
  #draw(page) {
    const wanted = page.scale * devicePixelRatio;
    if (this.#document && page.drawing !== wanted) {
      page.drawing = wanted;
      page.task?.cancel();
      page.drawn = this.#drawAnew(page, wanted);
    }
    return page.drawn;
  }

  async #drawAnew(page, wanted) {
    const document = this.#document;
    try {
      const proxy = await document.getPage(page.index + 1);
      page.viewport = proxy.getViewport({ scale: 1 });
      const { width, height } = page.viewport;
      if (width !== page.width || height !== page.height) {
        Object.assign(page, { width, height });
        page.element.style.width = `${width * page.scale}px`;
        page.element.style.height = `${height * page.scale}px`;
      }
      const viewport = proxy.getViewport({ scale: Math.min(wanted, Math.sqrt(MAX_DOTS / (width * height))) });
      const canvas = globalThis.document.createElement("canvas");
      canvas.width = Math.round(viewport.width);
      canvas.height = Math.round(viewport.height);
      page.task = proxy.render({ canvas, viewport, annotationMode: AnnotationMode.ENABLE });
      await page.task.promise;
      if (page.drawing !== wanted) return;
      page.canvas = canvas;
      page.element.replaceChildren(canvas);
    } catch (error) {
      // A document that was closed meanwhile is broken by that.
      if (error.name === "RenderingCancelledException" || document !== this.#document) return;
      page.element.textContent = `This page cannot be drawn: ${error.message}`;
      this.#onBroken(page.index + 1);
    }
  }

  #forget(page) {
    page.task?.cancel();
    Object.assign(page, { drawing: undefined, canvas: undefined, task: undefined });
    page.element.replaceChildren();
  }

  #pageInSight() {
    const middle = this.#container.scrollTop + this.#container.clientHeight / 2;
    const after = this.#pages.findIndex(({ element }) => element.offsetTop > middle);
    return after === -1 ? this.#pages.length : Math.max(1, after);
  }

  #tellPage() {
    if (this.#pages.length > 0) this.#onPage(this.#pageInSight(), this.#pages.length);
  }
}
