/** Serves the pages: checks what they ask, asks the user whether they may, and has the signing program do it. */

import { MAX_TIMEOUT_MS, QuillmarkError } from "../quillmark.js";
import { Documents } from "./documents.js";
import { Limit } from "./limit.js";
import { MAX_OPEN, MAX_OPEN_PER_DOCUMENT, SIGN_OF_LIFE_MS } from "./limits.js";
import { operationOf } from "./operations.js";
import { Progress } from "./progress.js";
import { Queue } from "./queue.js";

const invalid = (detail) => new QuillmarkError("INVALID_ARGUMENT", { detail });

export class Service {
  #permissions;
  #rules;
  #consent;
  #host;
  #signatures;
  #surroundings;
  #version;
  #consentQueue = new Queue();
  #hostQueue = new Queue();
  #documents = new Documents();

  /** `surroundings(tabId)` resolves to the origin of the page in the tab, null where it is not known. */
  constructor({ permissions, rules, consent, host, signatures, surroundings, version }) {
    this.#permissions = permissions;
    this.#rules = rules;
    this.#consent = consent;
    this.#host = host;
    this.#signatures = signatures;
    this.#surroundings = surroundings;
    this.#version = version;
  }

  /** Serves a page through the port that the extension's script in it has opened. */
  connect(port) {
    const document = this.#documents.connect(port);
    port.onMessage.addListener((message) => {
      if (message?.type === "abort") document.open.get(message.id)?.limit.abort("ABORTED");
      if (message?.type === "request") void this.#answer(document, port, message);
    });
    port.onDisconnect.addListener(() => {
      this.#documents.disconnect(document, port);
      for (const request of document.open.values()) if (request.port === port) request.limit.abort("ABORTED");
      if (document.ports.size === 0 && document.usesHost && ![...this.#documents].some((other) => other.usesHost)) {
        this.#host.close();
      }
    });
  }

  /** The origins whose requests are open, and those allowed until their page closes: {waiting, allowed}. */
  origins() {
    const of = (applies) => [...new Set([...this.#documents].filter(applies).map(({ origin }) => origin))];
    return { waiting: of(({ open }) => open.size > 0), allowed: of(({ isAllowed }) => isAllowed) };
  }

  /** Takes back what the user has allowed to the origin, for good or until its page closes, and what came of it. */
  async revoke(origin) {
    for (const document of this.#documents) if (document.origin === origin) document.isAllowed = false;
    await this.#permissions.revoke(origin);
    await this.recheck();
    // The PIN was typed for this site among others.
    if (this.#host.run?.choices.has(origin)) this.#host.close();
  }

  /** Ends the requests whose permission does not hold any more. To be called when permissions have changed. */
  async recheck() {
    for (const document of this.#documents) {
      for (const request of document.open.values()) {
        if (request.grant && !(await this.#stillMay(document, request))) request.limit.abort("ORIGIN_DENIED");
      }
    }
  }

  async #answer(document, port, message) {
    const { id } = message;
    let request;
    const progress = new Progress((state) => post(port, { type: "progress", id, progress: state }));
    try {
      request = this.#admit(document, port, message);
      const value = await this.#serve(document, request, progress);
      progress.end();
      post(port, { type: "result", id, value });
    } catch (error) {
      progress.end();
      post(port, { type: "error", id, error: plain(error) });
    } finally {
      if (request) document.open.delete(id);
    }
  }

  // The door: behind it a request is one of ours, and takes one of the limited places.
  #admit(document, port, { id, operation, values, timeout, gestureAge }) {
    if (!Number.isInteger(id) || document.open.has(id)) throw invalid("The request's id is not a number of its own.");
    if (document.open.size >= MAX_OPEN_PER_DOCUMENT || this.#documents.openRequests >= MAX_OPEN) {
      throw new QuillmarkError("TOO_MANY");
    }
    if (!(Number.isFinite(timeout) && timeout > 0 && timeout <= MAX_TIMEOUT_MS)) throw invalid("The time limit is not valid.");
    const given = typeof values === "object" && values !== null ? values : {};
    const request =
      operation === "status"
        ? { isStatus: true, checkHost: given.checkHost === true }
        : { name: operation, operation: operationOf(operation), values: operationOf(operation).check(given) };
    Object.assign(request, { port, gestureAge: gestureAge ?? null, limit: new Limit(timeout) });
    document.open.set(id, request);
    return request;
  }

  async #serve(document, request, progress) {
    if (request.isStatus) return this.#status(document, request, progress);
    request.grant = await this.#requirePermission(document, request, progress);
    return this.#atHost(document, request, progress, () => this.#perform(document, request));
  }

  // What a page that nobody has allowed learns here tells it neither what others do nor when to ask.
  async #status(document, request, progress) {
    const permission = await this.#permissionOf(document);
    const isAllowed = permission === "allowed";
    if (request.checkHost) {
      if (!isAllowed) throw new QuillmarkError("ORIGIN_DENIED");
      request.grant = "standing";
      await this.#atHost(document, request, progress, () => this.#signOfLife(request.limit));
    }
    return {
      extension: this.#version,
      permission,
      host: isAllowed ? (this.#host.run ? "running" : "stopped") : null,
      waiting: isAllowed ? this.#consentQueue.length + this.#hostQueue.length : 0,
    };
  }

  // A request without an action touches neither window nor token; the program answers it by its echo.
  async #signOfLife(limit) {
    const timer = setTimeout(() => limit.abort("TIMEOUT"), SIGN_OF_LIFE_MS);
    try {
      await this.#host.request({ text: "quillmark" }, limit.signal, { isUse: false });
    } catch (error) {
      if (error.code !== "UNKNOWN_ACTION") throw error;
    } finally {
      clearTimeout(timer);
    }
  }

  // ---- permission

  async #permissionOf(document) {
    if (document.isDenied) return "denied";
    const decision = await this.#permissions.decide(document.origin);
    return decision === "ask" && document.isAllowed ? "allowed" : decision;
  }

  async #stillMay(document, { grant }) {
    const permission = await this.#permissionOf(document);
    return permission === "allowed" || (grant === "once" && permission === "ask");
  }

  // Resolves to the grant: "standing" where the site is allowed, "once" where the user has allowed this very request.
  async #requirePermission(document, request, progress) {
    const { limit } = request;
    const settled = async () => {
      const permission = await this.#permissionOf(document);
      if (permission === "denied") throw new QuillmarkError("ORIGIN_DENIED");
      return permission === "allowed";
    };
    if (await settled()) return "standing";
    await this.#rules.require(document, request.gestureAge);
    return this.#inTurn(this.#consentQueue, limit, () => progress.tell({ state: "waiting" }), async () => {
      // The answer to an earlier question may have settled this one.
      if (await settled()) return "standing";
      await this.#rules.requireNow(document);
      progress.tell({ state: "consent" });
      request.wasAsked = true;
      const answer = await this.#ask(document, request);
      if (answer === "deny") {
        document.isDenied = true;
        throw new QuillmarkError("ORIGIN_DENIED");
      }
      return this.#allow(document, answer);
    });
  }

  async #ask(document, request) {
    let answer;
    await this.#rules.begin();
    try {
      answer = await this.#consent.ask(await this.#questionOf(document, request), request.limit.signal);
      return answer;
    } finally {
      await this.#rules.end(document, answer !== undefined && answer !== "deny");
    }
  }

  async #allow(document, answer) {
    document.engagedAt = Date.now();
    // A private window leaves no trace.
    if (!document.isPrivate) await this.#permissions.remember(document.origin);
    if (answer === "once") return "once";
    if (answer === "always" && !document.isPrivate) await this.#permissions.allow(document.origin);
    else document.isAllowed = true;
    return "standing";
  }

  async #questionOf({ origin, isFramed, isPrivate, tabId }, { name, operation, values }) {
    return {
      origin,
      isFramed,
      isPrivate,
      surroundings: isFramed ? await this.#surroundings(tabId) : null,
      firstAllowed: isPrivate ? null : ((await this.#permissions.firstAllowed(origin)) ?? null),
      operation: name,
      ...operation.shows(values),
    };
  }

  // ---- the signing program

  #atHost(document, request, progress, work) {
    document.usesHost = true;
    const onWaiting = (ahead) => progress.tell({ state: "waiting", ahead });
    return this.#inTurn(this.#hostQueue, request.limit, onWaiting, async () => {
      // The permission has to hold now, not only when the request came.
      if (!(await this.#stillMay(document, request))) throw new QuillmarkError("ORIGIN_DENIED");
      progress.tell({ state: "working" });
      return work();
    });
  }

  // Waits for the turn without, and works with, the user's clock running.
  async #inTurn(queue, limit, onWaiting, work) {
    const leave = await queue.enter({ signal: limit.signal, onWaiting });
    try {
      return await limit.during(work);
    } finally {
      leave();
    }
  }

  // A site that is allowed gets no question, but its user sees the text before the certificates.
  async #perform(document, request) {
    const question = await this.#questionOf(document, request);
    if (request.wasAsked || question.text === undefined) return this.#sign(document, request);
    const { limit } = request;
    const onStop = () => limit.abort("USER_CANCELLED");
    const result = await this.#consent.during(question, limit.signal, onStop, () => this.#sign(document, request));
    limit.signal.throwIfAborted();
    return result;
  }

  async #sign(document, request) {
    const { operation, values, wasAsked } = request;
    const hadToChoose = !operation.userChooses && !this.#host.run?.choices.has(document.origin);
    if (hadToChoose) {
      // The PIN was typed for another site: this one has not had the user choose a certificate yet.
      const chosen = await this.#request(document, request, operationOf("selectCertificate"), {});
      if (chosen.CertThumbPrint !== values.certThumbPrint) throw new QuillmarkError("CERTIFICATE_NOT_FOUND");
    }
    if (!operation.signs) return this.#request(document, request, operation, values);
    const isSilent = !wasAsked && !operation.userChooses && !hadToChoose;
    try {
      const result = await this.#request(document, request, operation, values);
      await this.#keep(document, request, { outcome: "signed", result, isSilent });
      return result;
    } catch (error) {
      await this.#keep(document, request, { outcome: error.code ?? "HOST_EXITED", isSilent: false });
      throw error;
    }
  }

  async #request(document, { limit }, operation, values) {
    const result = operation.result(await this.#host.request(operation.toProgram(values), limit.signal));
    document.engagedAt = Date.now();
    const { run } = this.#host;
    if (!run) return result;
    if (operation.userChooses) run.choices.set(document.origin, result.CertThumbPrint ? result : (run.choices.get(document.origin) ?? null));
    if (operation.signs) run.loggedIn = true;
    return result;
  }

  // A journal that cannot be written keeps nobody from his signature.
  async #keep({ origin, isPrivate }, { name, operation, values }, { outcome, result, isSilent }) {
    try {
      const { algorithm, digest } = await operation.signs(values);
      const thumbprint = (result && (await operation.certificate?.(values, result))) ?? null;
      const known = [...(this.#host.run?.choices.values() ?? [])].find((record) => record?.CertThumbPrint === thumbprint);
      const subject = (thumbprint && known?.SelCertSubject) ?? null;
      const entry = { origin, operation: name, algorithm, digest, certificate: thumbprint, subject, outcome };
      await this.#signatures.add(entry, { isPrivate, isSilent });
    } catch (error) {
      console.error("The journal could not be written:", error);
    }
  }
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
