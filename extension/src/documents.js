/**
 * A document that asks, as the browser tells of it: no member is what a page says. `#forget` of Documents ends its life,
 * and with it what the user has said about it.
 */
class PageDocument {
  /** The user has refused this document; it is not asked about again. */
  isDenied = false;
  /** The user has allowed it for as long as it is there. */
  isAllowed = false;
  /** The signing program runs for it, among others. */
  usesHost = false;
  /** When the user has last answered for it. */
  engagedAt = -Infinity;
  /** Its open requests by their ids: {grant, limit}. */
  open = new Map();
  ports = new Set();

  constructor(key, { frameId, origin, tab }) {
    this.key = key;
    this.origin = origin;
    this.isFramed = frameId !== 0;
    this.isPrivate = tab?.incognito === true;
    this.tabId = tab?.id;
  }
}

/** The documents whose ports are open. */
export class Documents {
  #byKey = new Map();

  /** The document behind a port, which now has one port more. A frame's origin is its own. */
  connect(port) {
    const { documentId, frameId, origin, tab } = port.sender;
    const key = documentId ?? `${tab?.id}/${frameId}/${origin}`;
    if (!this.#byKey.has(key)) this.#byKey.set(key, new PageDocument(key, port.sender));
    const document = this.#byKey.get(key);
    document.ports.add(port);
    return document;
  }

  /** Takes the port away; with its last one the document is gone. */
  disconnect(document, port) {
    document.ports.delete(port);
    if (document.ports.size === 0) this.#byKey.delete(document.key);
  }

  [Symbol.iterator]() {
    return this.#byKey.values();
  }

  /** The number of open requests of all. */
  get openRequests() {
    let sum = 0;
    for (const document of this) sum += document.open.size;
    return sum;
  }
}
