/** Serves the pages: checks what they ask, asks the user whether they may, and has the signing program do it. */

import { checkRequest, MAX_TIMEOUT_MS, QuillmarkError } from "../quillmark.js";
import { Limit } from "./limit.js";
import { Queue } from "./queue.js";
import { hostRequest, pageResult } from "./requests.js";

// The program needs no user for a sign of life, only the time to start.
const SIGN_OF_LIFE_MS = 15_000;

// What the user is shown of a text; it is enough to recognise it, and keeps the window usable.
const PREVIEW_CHARACTERS = 4_000;

const HAS_USER_CHOOSE = ["selectCertificate", "signGstReturn", "signItReturn", "signAuthToken"];

export class Service {
  #permissions;
  #consent;
  #host;
  #version;
  #consentQueue = new Queue();
  #hostQueue = new Queue();
  #documents = new Map();

  constructor({ permissions, consent, host, version }) {
    this.#permissions = permissions;
    this.#consent = consent;
    this.#host = host;
    this.#version = version;
  }

  /** Serves a page through the port that the extension's script in it has opened. */
  connect(port) {
    const page = this.#documentOf(port);
    const limits = new Map();
    port.onMessage.addListener(async (message) => {
      if (message.type === "abort") limits.get(message.id)?.abort("ABORTED");
      if (message.type !== "request") return;
      const { id } = message;
      try {
        const limit = new Limit(checkedTimeout(message.timeout));
        limits.set(id, limit);
        const progress = (state) => post(port, { type: "progress", id, progress: state });
        post(port, { type: "result", id, value: await this.#serve(page, message, limit, progress) });
      } catch (error) {
        post(port, { type: "error", id, error: plain(error) });
      } finally {
        limits.delete(id);
      }
    });
    port.onDisconnect.addListener(() => {
      for (const limit of limits.values()) limit.abort("ABORTED");
      this.#forget(page, port);
    });
  }

  // The origin is what the browser says of the sender, and a frame's is its own. Nothing that a page sends enters here.
  #documentOf(port) {
    const { documentId, frameId, origin, tab } = port.sender;
    const key = documentId ?? `${tab?.id}/${frameId}/${origin}`;
    if (!this.#documents.has(key)) {
      const page = { key, origin, framed: frameId !== 0, incognito: tab?.incognito === true };
      this.#documents.set(key, { ...page, ports: new Set(), denied: false, usesHost: false });
    }
    const page = this.#documents.get(key);
    page.ports.add(port);
    return page;
  }

  #forget(page, port) {
    page.ports.delete(port);
    if (page.ports.size > 0) return;
    this.#documents.delete(page.key);
    if (page.usesHost && ![...this.#documents.values()].some((other) => other.usesHost)) this.#host.close();
  }

  async #serve(page, { operation, values }, limit, progress) {
    const request = checkRequest(operation, values ?? {});
    if (operation === "status") return this.#status(page, request, limit, progress);
    await this.#requirePermission(page, operation, request, limit, progress);
    return this.#atHost(page, limit, progress, () => this.#perform(page, operation, request, limit.signal));
  }

  async #status(page, { checkHost }, limit, progress) {
    const permission = await this.#permissionOf(page);
    if (checkHost) {
      if (permission !== "allowed") throw new QuillmarkError("ORIGIN_DENIED");
      await this.#atHost(page, limit, progress, () => this.#signOfLife(limit));
    }
    return {
      extension: this.#version,
      permission,
      host: this.#host.run ? "running" : "stopped",
      waiting: this.#consentQueue.length + this.#hostQueue.length,
    };
  }

  // A request without an action touches neither window nor token; the program answers it by its echo.
  async #signOfLife(limit) {
    const timer = setTimeout(() => limit.abort("TIMEOUT"), SIGN_OF_LIFE_MS);
    try {
      await this.#host.request({ text: "quillmark" }, limit.signal);
    } catch (error) {
      if (error.code !== "UNKNOWN_ACTION") throw error;
    } finally {
      clearTimeout(timer);
    }
  }

  async #permissionOf(page) {
    return page.denied ? "denied" : this.#permissions.decide(page.origin);
  }

  async #requirePermission(page, operation, request, limit, progress) {
    if ((await this.#permissionOf(page)) === "allowed") return;
    await this.#inTurn(this.#consentQueue, limit, progress, async () => {
      // The answer to an earlier question may have settled this one.
      const permission = await this.#permissionOf(page);
      if (permission === "allowed") return;
      if (permission === "denied") throw new QuillmarkError("ORIGIN_DENIED");

      progress({ state: "consent" });
      const { origin, framed, incognito } = page;
      const answer = await this.#consent.ask(
        { origin, framed, incognito, operation, preview: previewOf(request) },
        limit.signal,
      );
      if (answer === "deny") {
        // Asking again at once would wear the user down; a reload of the page asks anew.
        page.denied = true;
        throw new QuillmarkError("ORIGIN_DENIED");
      }
      if (answer === "always") await this.#permissions.allow(origin);
    });
  }

  #atHost(page, limit, progress, work) {
    page.usesHost = true;
    return this.#inTurn(this.#hostQueue, limit, progress, () => {
      progress({ state: "working" });
      return work();
    });
  }

  // Waits for the turn without, and works with, the user's clock running.
  async #inTurn(queue, limit, progress, work) {
    const onWaiting = (ahead) => progress({ state: "waiting", ahead });
    const leave = await queue.enter({ signal: limit.signal, onWaiting });
    try {
      return await limit.during(work);
    } finally {
      leave();
    }
  }

  async #perform(page, operation, request, signal) {
    if (operation === "signPdfHash" && !this.#host.run?.choices.has(page.origin)) {
      // The program knows its certificates only after a choice, and this origin has not had the user choose one yet.
      const chosen = await this.#ask(page, "selectCertificate", {}, signal);
      if (chosen.CertThumbPrint !== request.certThumbPrint) throw new QuillmarkError("CERTIFICATE_NOT_FOUND");
    }
    return this.#ask(page, operation, request, signal);
  }

  async #ask(page, operation, request, signal) {
    const result = pageResult(operation, await this.#host.request(hostRequest(operation, request), signal));
    if (HAS_USER_CHOOSE.includes(operation)) this.#host.run?.choices.add(page.origin);
    if (operation !== "selectCertificate" && this.#host.run) this.#host.run.loggedIn = true;
    return result;
  }
}

function checkedTimeout(timeout) {
  if (timeout > 0 && timeout <= MAX_TIMEOUT_MS) return timeout;
  throw new QuillmarkError("INVALID_ARGUMENT", { detail: "The time limit is not valid." });
}

function previewOf({ text, authToken }) {
  const whole = text ?? authToken;
  return whole && { text: whole.slice(0, PREVIEW_CHARACTERS), characters: whole.length };
}

// An error in the form in which it travels to the page. What is no QuillmarkError is the browser's, about the port.
function plain(error) {
  if (!(error instanceof QuillmarkError)) return { ...plain(new QuillmarkError("HOST_EXITED")), detail: String(error) };
  const { code, message, detail, ckr } = error;
  return { code, message, detail, ckr };
}

// The page may have gone meanwhile.
function post(port, message) {
  try {
    port.postMessage(message);
  } catch {
    // Nobody is left to be told.
  }
}
