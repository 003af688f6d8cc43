// The extension's script in each page: hands messages between the page library and the extension, and knows nothing of
// what they mean but their size, and when the user was at work in this document. Content scripts are classic scripts,
// hence the function around everything.
(() => {
  const api = globalThis.browser ?? globalThis.chrome;

  // The limits of limits.js that have to hold before anything leaves the page: what one page can have open at once, in
  // number and in bytes. Browsers pass at most 64 MiB in a message; the room is for the names around the page's values.
  const MAX_OPEN_PER_DOCUMENT = 20;
  const MAX_OPEN_BYTES = 64 * 1024 * 1024 - 4096;

  // What the page library answers the extension within a request: a piece of a document, in Base64.
  const MAX_REPLY_CHARACTERS = 4 * 1024 * 1024;

  // The browser stops an extension that is quiet for 30 seconds, and with it what the user has allowed to this document.
  const KEEP_ALIVE_MS = 20_000;

  const NO_GESTURE = ["Escape", "Shift", "Control", "Alt", "AltGraph", "Meta", "CapsLock", "NumLock", "ScrollLock"];

  let extension;
  let keepAlive;
  let lastId = 0;
  let lastGesture = -Infinity;
  // The document's open requests, by an id of our own: {page, id, bytes, asked}; `asked` are the numbers of the extension's
  // questions that wait. Each channel of the page numbers its own.
  const open = new Map();

  // First of all listeners, for this script runs before any of the page's. document.open() takes all of them away; to listen
  // twice is to listen once.
  listen();
  new MutationObserver(listen).observe(document, { childList: true });

  function listen() {
    for (const type of ["click", "keydown"]) window.addEventListener(type, noteGesture, { capture: true, passive: true });
    window.addEventListener("message", greet);
    window.addEventListener("pagehide", leave);
  }

  // No page can make a trusted event.
  function noteGesture(event) {
    if (event.isTrusted && !NO_GESTURE.includes(event.key)) lastGesture = performance.now();
  }

  function greet(event) {
    // A message from another frame has another source; its channel must not be served as if this document had sent it.
    if (event.source !== window || event.data?.quillmark !== "connect" || event.ports.length !== 1) return;
    const [page] = event.ports;
    page.onmessage = ({ data }) => receive(page, data);
    page.postMessage({ type: "ready" });
  }

  // A page that is kept for the way back is gone as far as its requests are concerned.
  function leave() {
    for (const [ownId] of open) answer(ownId, failure("ABORTED"));
    disconnect();
  }

  // The page around a frame is named in the frame's questions.
  if (window === window.top) {
    api.runtime.onMessage.addListener((message, sender, reply) => {
      if (message === "origin") reply(location.origin);
    });
  }

  function receive(page, data) {
    const [ownId] = [...open].find(([, request]) => request.page === page && request.id === data?.id) ?? [];
    if (data?.type === "abort" && ownId !== undefined) extension?.postMessage({ type: "abort", id: ownId });
    if (data?.type === "reply" && ownId !== undefined) reply(ownId, data);
    if (data?.type !== "request") return;
    const request = plain(data);
    const bytes = new TextEncoder().encode(JSON.stringify(request.values)).length;
    const openBytes = [...open.values()].reduce((sum, each) => sum + each.bytes, 0);
    let refusal;
    if (ownId !== undefined) refusal = "INVALID_ARGUMENT";
    else if (bytes > MAX_OPEN_BYTES) refusal = "TOO_LARGE";
    else if (open.size >= MAX_OPEN_PER_DOCUMENT || openBytes + bytes > MAX_OPEN_BYTES) refusal = "TOO_MANY";
    if (refusal) page.postMessage({ id: data.id, ...failure(refusal) });
    else send(page, data.id, request, bytes);
  }

  function send(page, id, request, bytes) {
    const ownId = ++lastId;
    open.set(ownId, { page, id, bytes, asked: new Set() });
    const gestureAge = lastGesture === -Infinity ? null : performance.now() - lastGesture;
    try {
      if (!extension) connect();
      extension.postMessage({ type: "request", id: ownId, ...request, gestureAge });
    } catch {
      lose();
    }
  }

  // Once for each question: what nobody has asked for would only fill the extension.
  function reply(ownId, { number, text }) {
    if (!open.get(ownId).asked.delete(number)) return;
    const isText = typeof text === "string" && text.length <= MAX_REPLY_CHARACTERS;
    extension?.postMessage({ type: "reply", id: ownId, number, text: isText ? text : null });
  }

  function connect() {
    extension = api.runtime.connect({ name: "page" });
    extension.onMessage.addListener((message) => answer(message.id, message));
    extension.onDisconnect.addListener(lose);
    keepAlive = setInterval(() => extension.postMessage({ type: "ping" }), KEEP_ALIVE_MS);
  }

  function answer(ownId, message) {
    const request = open.get(ownId);
    if (!request) return;
    if (message.type === "query") request.asked.add(message.number);
    if (["result", "error"].includes(message.type)) open.delete(ownId);
    request.page.postMessage({ ...message, id: request.id });
  }

  // The extension was stopped or replaced.
  function lose() {
    disconnect();
    for (const page of new Set([...open.values()].map((request) => request.page))) page.postMessage({ type: "lost" });
    open.clear();
  }

  function disconnect() {
    clearInterval(keepAlive);
    extension?.disconnect();
    extension = undefined;
  }

  const failure = (code) => ({ type: "error", error: { code } });

  // Of the values that a page may post, the extension knows texts and truth values; what could be of any size besides them
  // becomes null, and is refused as such.
  function plain({ operation, values, timeout }) {
    const simple = (value) => (["string", "boolean", "undefined"].includes(typeof value) ? value : null);
    const members = typeof values === "object" && values !== null ? Object.entries(values) : [];
    const known = members.map(([name, value]) => [name, simple(value)]);
    return {
      operation: typeof operation === "string" && operation.length < 100 ? operation : null,
      values: Object.fromEntries(known),
      timeout: typeof timeout === "number" ? timeout : null,
    };
  }
})();
