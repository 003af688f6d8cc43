/** Draws a document's pages: those in sight and their neighbours, however many there are. */

import { AnnotationMode } from "../libraries/pdfjs.js";
import { message } from "../src/messages.js";
import { checkComplete, load } from "./drawing.js";
import { wordsOf } from "./words.js";

/** Above this many dots a page is drawn coarser than the screen is. */
const MAX_DOTS = 16_000_000;

/** What every browser's canvas can have at a side. */
const MAX_SIDE = 16_384;

/** How far around the window pages are drawn already. */
const MARGIN = "600px";

const MARGIN_OF_PAGE = 10;
const ZOOMS = [0.25, 0.5, 0.75, 1, 1.25, 1.5, 2, 3, 4];

export class PagesView {
  #container;
  #onSight;
  #onBroken;
  #document;
  #pages = [];
  #observer;
  #zoom = 1;
  #width;

  /** `onSight(number, count)` is called with the page in the middle, and also when more or fewer of those in sight are drawn. */
  constructor(container, onSight) {
    this.#container = container;
    this.#onSight = onSight;
    container.addEventListener("scroll", () => this.#tellSight());
    new ResizeObserver(() => this.#layOut()).observe(container);
  }

  /** Whether everything in sight is drawn. */
  get isDrawn() {
    const inSight = this.#inSight();
    return inSight.length > 0 && inSight.every(({ canvas }) => canvas);
  }

  /**
   * Shows the document of these bytes, which are taken away; resolves when its page in sight is drawn. `onBroken(number)` is
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
    this.#tellSight();
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

  /** How many pages there are. */
  get count() {
    return this.#pages.length;
  }

  /** Scrolls to a page (from 0) when nothing of it is in sight; resolves to {element, viewport} when it is drawn. */
  async bringIntoSight(index) {
    const page = this.#pages[index];
    if (!this.#inSight().includes(page)) page.element.scrollIntoView();
    await this.#draw(page);
    return { element: page.element, viewport: page.viewport };
  }

  #makePage(index, { width, height }) {
    const element = document.createElement("div");
    element.className = "page";
    element.role = "group";
    element.ariaLabel = message("documents_page_label", index + 1);
    element.dataset.page = String(index + 1);
    return { index, element, width, height };
  }

  // Each page is as wide as there is room: beside a very wide one others can be read too.
  #layOut() {
    this.#width = Math.max(1, this.#container.clientWidth - 2 * MARGIN_OF_PAGE) * this.#zoom;
    for (const page of this.#pages) {
      this.#fit(page);
      if (page.canvas) void this.#draw(page);
    }
    this.#tellSight();
  }

  #fit({ element, width, height }) {
    element.style.width = `${this.#width}px`;
    element.style.height = `${(this.#width * height) / width}px`;
  }

  #look(entries) {
    for (const { target, isIntersecting } of entries) {
      const page = this.#pages[Number(target.dataset.page) - 1];
      if (isIntersecting) void this.#draw(page);
      else this.#forget(page);
    }
    this.#tellSight();
  }

  /** Resolves when the page is drawn in the size that it has. */
  #draw(page) {
    const dots = this.#width * devicePixelRatio;
    if (this.#document && page.drawing !== dots) {
      page.drawing = dots;
      page.task?.cancel();
      page.drawn = this.#drawAnew(page, dots);
    }
    return page.drawn;
  }

  async #drawAnew(page, dots) {
    const document = this.#document;
    try {
      const proxy = await document.getPage(page.index + 1);
      page.viewport = proxy.getViewport({ scale: 1 });
      const { width, height } = page.viewport;
      if (width !== page.width || height !== page.height) this.#fit(Object.assign(page, { width, height }));
      await checkComplete(document, proxy);
      if (page.drawing !== dots) return;
      page.words ??= await wordsOf(proxy);
      const scale = Math.min(dots / width, Math.sqrt(MAX_DOTS / (width * height)), MAX_SIDE / Math.max(width, height));
      const viewport = proxy.getViewport({ scale });
      const canvas = globalThis.document.createElement("canvas");
      canvas.width = Math.max(1, Math.round(viewport.width));
      canvas.height = Math.max(1, Math.round(viewport.height));
      page.task = proxy.render({ canvas, viewport, annotationMode: AnnotationMode.ENABLE });
      await page.task.promise;
      if (page.drawing !== dots) return;
      canvas.ariaHidden = "true"; // its words are there
      page.canvas = canvas;
      page.element.replaceChildren(canvas, page.words);
      this.#tellSight();
    } catch (error) {
      // A document that was closed meanwhile is broken by that.
      if (error.name === "RenderingCancelledException" || document !== this.#document) return;
      page.canvas = undefined;
      page.element.textContent = message("documents_page_broken", error.message);
      this.#onBroken(page.index + 1);
    }
  }

  #forget(page) {
    page.task?.cancel();
    Object.assign(page, { drawing: undefined, canvas: undefined, task: undefined, words: undefined });
    page.element.replaceChildren();
  }

  #pageInSight() {
    const middle = this.#container.scrollTop + this.#container.clientHeight / 2;
    const after = this.#pages.findIndex(({ element }) => element.offsetTop > middle);
    return after === -1 ? this.#pages.length : Math.max(1, after);
  }

  #inSight() {
    const top = this.#container.scrollTop;
    const bottom = top + this.#container.clientHeight;
    return this.#pages.filter(({ element: { offsetTop, offsetHeight } }) => offsetTop < bottom && offsetTop + offsetHeight > top);
  }

  #tellSight() {
    if (this.#pages.length > 0) this.#onSight(this.#pageInSight(), this.#pages.length);
  }
}
