/**
 * A document that asks, as the browser tells of it: no member is what a page says. The extension's script opens one port for
 * each document, so the document is gone with its port, and with it what the user has said about it.
 */
export class PageDocument {
  /** The user has refused this document; it is not asked about again. */
  isDenied = false;
  /** The user has allowed it for as long as it is there. */
  isAllowed = false;
  /** The signing program runs for it, among others. */
  usesHost = false;
  /** When the user has last answered for it. */
  engagedAt = -Infinity;
  /** Its open requests by their ids: {operation, limit, grant, …}. */
  open = new Map();

  /** `port`: the script's. A frame's origin is its own. */
  constructor({ sender: { frameId, origin, tab } }) {
    this.origin = origin;
    this.isFramed = frameId !== 0;
    this.isPrivate = tab?.incognito === true;
    this.tabId = tab?.id;
  }
}
