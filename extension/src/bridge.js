// The extension's script in each page: hands messages between the page library and the extension, and knows nothing of
// what they mean. Content scripts are classic scripts, hence the function around everything.
(() => {
  const api = globalThis.browser ?? globalThis.chrome;
  const MESSAGES_FROM_PAGE = ["request", "abort"];

  // The browser stops an extension that is quiet for 30 seconds, also while the user thinks about an open request.
  const KEEP_ALIVE_MS = 20_000;

  window.addEventListener("message", (event) => {
    // A message from another frame has another source; its channel must not be served as if this document had sent it.
    if (event.source !== window || event.data?.quillmark !== "connect" || event.ports.length !== 1) return;
    serve(event.ports[0]);
  });

  function serve(page) {
    let extension;
    let keepAlive;
    const open = new Set();

    function connect() {
      extension = api.runtime.connect({ name: "page" });
      extension.onMessage.addListener((message) => {
        if (message.type !== "progress") open.delete(message.id);
        page.postMessage(message);
      });
      extension.onDisconnect.addListener(lose);
      keepAlive = setInterval(() => open.size > 0 && extension.postMessage({ type: "ping" }), KEEP_ALIVE_MS);
    }

    // The extension was stopped: for being quiet, which nobody needs to know, or in the middle of a request.
    function lose() {
      clearInterval(keepAlive);
      extension = undefined;
      if (open.size > 0) page.postMessage({ type: "lost" });
      open.clear();
    }

    page.onmessage = ({ data }) => {
      if (!MESSAGES_FROM_PAGE.includes(data?.type)) return;
      if (data.type === "request") open.add(data.id);
      try {
        if (!extension) connect();
        extension.postMessage(data);
      } catch {
        lose();
      }
    };
    page.postMessage({ type: "ready" });
  }
})();
