// Web sites on this computer: each address and port is an origin of its own.

import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { extname, join, normalize } from "node:path";

const TYPES = { ".html": "text/html; charset=utf-8", ".js": "text/javascript", ".css": "text/css", ".pdf": "application/pdf" };

/**
 * Serves the files of `folder`, and the pages in `pages` (HTML by path), at an address of this computer. Gives
 * { port, close() }.
 */
export async function serve(folder, { pages = {}, address = "127.0.0.1" } = {}) {
  const server = createServer(async (request, response) => {
    const { pathname } = new URL(request.url, "http://localhost");
    try {
      const path = normalize(pathname).replace(/\/$/, "/index.html");
      const body = pages[pathname] ?? (await readFile(join(folder, path)));
      response.writeHead(200, { "content-type": TYPES[extname(path)] ?? TYPES[".html"] }).end(body);
    } catch {
      response.writeHead(404).end("There is no such file.");
    }
  });
  await new Promise((resolve) => server.listen(0, address, resolve));
  const close = () => new Promise((resolve) => {
    server.close(resolve);
    server.closeAllConnections();
  });
  return { port: server.address().port, close };
}
