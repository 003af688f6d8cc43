/** The server's side of a login: node server.mjs ORIGIN ROOTS.pem, behind https at that origin, with quillmark.js beside this file. */

import { randomUUID } from "node:crypto";
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { pathToFileURL } from "node:url";

import { newChallenge, VerificationError, verifyAuthToken } from "quillmark-verify";

const FILES = { "/index.html": "text/html", "/login.js": "text/javascript", "/quillmark.js": "text/javascript" };
const MAX_BODY_BYTES = 64 * 1024;
const MAX_SESSIONS = 10_000;

/** `options`: as of verifyAuthToken, without those of the request. `folder`: where the page's files are. */
export function loginServer({ site, folder = new URL("./", import.meta.url), ...options }) {
  const sessions = new Map(); // by the cookie: { challenge }, { name }
  const actions = {
    "POST /challenge": async () => {
      const challenge = newChallenge({ site });
      return { session: { challenge }, body: { challenge } };
    },
    "POST /login": async ({ challenge }, { certificate, signature }) => {
      if (!challenge) throw new VerificationError("CHALLENGE_INVALID");
      const { signer } = await verifyAuthToken({ ...options, signature, challenge, site, certificate });
      // Names are not unique: look up whose account has signer.thumbprint256, and refuse who has none.
      return { session: { name: signer.name }, body: { name: signer.name } };
    },
    "GET /me": async (session) => ({ session, body: { name: session.name ?? null } }),
  };

  return createServer(async (request, response) => {
    const answer = (status, headers, body) => response.writeHead(status, headers).end(body);
    try {
      const path = request.url === "/" ? "/index.html" : request.url;
      const type = request.method === "GET" && FILES[path];
      if (type) return answer(200, { "content-type": type }, await readFile(new URL(`.${path}`, folder)));
      const action = actions[`${request.method} ${request.url}`];
      if (!action) return answer(404, {}, "");
      const id = /\bsession=([\w-]+)/.exec(request.headers.cookie)?.[1];
      const session = sessions.get(id) ?? {};
      sessions.delete(id); // a challenge is used once, whatever comes of it, and who logs in gets another session
      const { session: next, body } = await action(session, await bodyOf(request));
      const nextId = randomUUID();
      sessions.set(nextId, next);
      if (sessions.size > MAX_SESSIONS) sessions.delete(sessions.keys().next().value); // the oldest
      const cookie = `session=${nextId}; HttpOnly; SameSite=Strict; Path=/${site.startsWith("https:") ? "; Secure" : ""}`;
      return answer(200, { "content-type": "application/json", "set-cookie": cookie }, JSON.stringify(body));
    } catch (error) {
      const code = error instanceof VerificationError ? error.code : "BAD_REQUEST";
      return answer(code === "BAD_REQUEST" ? 400 : 401, { "content-type": "application/json" }, JSON.stringify({ error: code }));
    }
  });
}

async function bodyOf(request) {
  let text = "";
  for await (const chunk of request.setEncoding("utf8")) {
    text += chunk;
    if (text.length > MAX_BODY_BYTES) throw new Error("too long");
  }
  return Object(JSON.parse(text || "{}"));
}

if (import.meta.url === pathToFileURL(process.argv[1] ?? "").href) {
  const [, , site, roots] = process.argv;
  loginServer({ site, roots: await readFile(roots, "utf8"), fetch }).listen(8080, "localhost");
}
