/** Serves the pages: checks what they ask, asks the user whether they may, and has the signing program do it. */

import { MAX_TIMEOUT_MS, QuillmarkError } from "../quillmark.js";
import { callsOf } from "./document-calls.js";
import { PageDocument } from "./documents.js";
import { Limit } from "./limit.js";
import { MAX_OPEN, MAX_OPEN_PER_DOCUMENT, SIGN_OF_LIFE_MS } from "./limits.js";
import { operationOf } from "./operations.js";
import { PageQueries } from "./page-queries.js";
import { plain } from "./plain-error.js";
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
  #documents = new Set();

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
    const document = new PageDocument(port);
    this.#documents.add(document);
    port.onMessage.addListener((message) => {
      if (message?.type === "abort") document.open.get(message.id)?.limit.abort("ABORTED");
      if (message?.type === "reply") document.open.get(message.id)?.queries.take(message);
      if (message?.type === "request") void this.#answer(document, port, message);
    });
    port.onDisconnect.addListener(() => {
      this.#documents.delete(document);
      for (const { limit } of document.open.values()) limit.abort("ABORTED");
      if (document.usesHost && ![...this.#documents].some((other) => other.usesHost)) this.#host.close();
    });
  }

  /** The origins whose requests are open, and those allowed until their page closes: {waiting, allowed}. */
  origins() {
    const of = (applies) => [...new Set([...this.#documents].filter(applies).map(({ origin }) => origin))];
    return { waiting: of(({ open }) => open.size > 0), allowed: of(({ isAllowed }) => isAllowed) };
  }

  /** Whether a request is under way at the signing program. */
  get isAtWork() {
    return this.#hostQueue.length > 0;
  }

  /** Takes back what the user has allowed to the origin, for good or until its page closes, and what came of it. */
  async revoke(origin) {
    for (const document of this.#documents) if (document.origin === origin) document.isAllowed = false;
    try {
      await this.#permissions.revoke(origin);
    } finally {
      await this.recheck();
      // The PIN was typed for this site among others.
      if (this.#host.run?.sites.has(origin)) this.#host.close();
    }
  }

  /** Ends the requests whose permission does not hold any more. To be called when permissions have changed. */
  async recheck() {
    for (const document of this.#documents) {
      for (const request of document.open.values()) {
        if (request.grant && !(await this.#stillMay(document, request))) request.limit.abort(await this.#denialOf(document));
      }
    }
  }

  async #answer(document, port, message) {
    const { id } = message;
    let request;
    const progress = new Progress((state) => post(port, { type: "progress", id, progress: state }));
    try {
      request = this.#admit(document, message);
      request.queries = new PageQueries((query) => post(port, { id, ...query }), request.limit.signal);
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

  // Takes one of the limited places. The values are looked at when the page may ask at all.
  #admit(document, { id, operation, values, timeout, gestureAge }) {
    if (!Number.isInteger(id) || document.open.has(id)) throw invalid("The request's id is not a number of its own.");
    const allOpen = [...this.#documents].reduce((sum, { open }) => sum + open.size, 0);
    if (document.open.size >= MAX_OPEN_PER_DOCUMENT || allOpen >= MAX_OPEN) throw new QuillmarkError("TOO_MANY");
    if (!(Number.isFinite(timeout) && timeout > 0 && timeout <= MAX_TIMEOUT_MS)) throw invalid("The time limit is not valid.");
    const request = {
      name: operation,
      operation: operation === "status" ? null : operationOf(operation),
      given: typeof values === "object" && values !== null ? values : {},
      gestureAt: typeof gestureAge === "number" ? Date.now() - gestureAge : -Infinity,
      limit: new Limit(timeout),
    };
    document.open.set(id, request);
    return request;
  }

  async #serve(document, request, progress) {
    if (!request.operation) return this.#status(document, request, progress);
    // Documents are shown, and asked about, each time.
    const mustAsk = !(await this.#isAllowed(document)) || request.operation.showsDocuments === true;
    if (mustAsk) await this.#rules.require(document, request.gestureAt);
    request.values = request.operation.check(request.given);
    if (request.operation.showsDocuments) return this.#serveDocuments(document, request, progress);
    request.grant = mustAsk ? await this.#askInTurn(document, request, progress) : "standing";
    return this.#atHost(document, request, progress, () => this.#perform(document, request));
  }

  // What a page that nobody has allowed learns here tells it neither what others do nor when to ask.
  async #status(document, request, progress) {
    const permission = await this.#permissionOf(document);
    const isAllowed = permission === "allowed";
    if (request.given.checkHost === true) {
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

  // A request without an action touches neither window nor token; the host answers it by its echo.
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

  async #denialOf({ origin }) {
    const decision = await this.#permissions.decide(origin);
    return new QuillmarkError("ORIGIN_DENIED", decision === "denied" ? { reason: "policy" } : {});
  }

  // Whether the site is allowed; false where the user has to be asked.
  async #isAllowed(document) {
    const permission = await this.#permissionOf(document);
    if (permission === "denied") throw await this.#denialOf(document);
    return permission === "allowed";
  }

  // Resolves to the grant: "standing" where the site is now allowed, "once" where the user has allowed this very request.
  #askInTurn(document, request, progress) {
    return this.#inTurn(this.#consentQueue, request.limit, () => progress.tell({ state: "waiting" }), async () => {
      // The answer to an earlier question may have settled this one.
      const isAllowed = await this.#isAllowed(document);
      if (isAllowed && !request.operation.showsDocuments) return "standing";
      await this.#rules.require(document, request.gestureAt);
      progress.tell({ state: "consent" });
      request.wasAsked = true;
      const answer = await this.#ask(document, request);
      if (answer === "deny" && isAllowed) throw new QuillmarkError("USER_CANCELLED");
      if (answer === "deny") {
        document.isDenied = true;
        throw new QuillmarkError("ORIGIN_DENIED");
      }
      if (answer === "none") return answer;
      return isAllowed ? "standing" : this.#allow(document, answer);
    });
  }

  async #ask(document, request) {
    await this.#rules.begin();
    let outcome = "withdrawn";
    try {
      const answer = await this.#show(document, request);
      outcome = { deny: "refused", none: "withdrawn" }[answer] ?? "allowed";
      return answer;
    } catch (error) {
      if (error.code === "TIMEOUT") outcome = "refused";
      throw error;
    } finally {
      await this.#rules.end(document, outcome);
    }
  }

  async #show(document, request) {
    const question = await this.#questionOf(document, request);
    const { limit, calls } = request;
    if (!calls) return this.#consent.ask(question, limit.signal);
    request.window = await this.#consent.openDocuments(question, limit.signal, calls);
    const answer = await request.window.answered;
    return answer === "closed" ? "deny" : answer;
  }

  async #allow(document, answer) {
    document.engagedAt = Date.now();
    // A private window leaves no trace.
    if (!document.isPrivate) await this.#permissions.remember(document.origin);
    if (["once", "sign"].includes(answer)) return "once";
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

  // ---- documents that are shown

  // Their window does the work. Here it gets the page's bytes, and signatures once the user has answered in it.
  async #serveDocuments(document, request, progress) {
    const atHost = (work) => this.#atHost(document, request, progress, work);
    const program = {
      choose: (operation) => atHost(() => this.#request(document, request, operation, {})),
      sign: (signature) => atHost(() => this.#sign(document, { ...request, ...signature })),
      run: () => this.#host.run,
    };
    request.calls = callsOf(request, program);
    try {
      request.answered = this.#askInTurn(document, request, progress).then((grant) => (request.grant = grant));
      await request.answered;
      await request.window.finished;
    } catch (error) {
      // Whatever is at work for it ends with it.
      request.limit.abort(error);
      throw error;
    } finally {
      await request.window?.close();
    }
  }

  // ---- the signing program

  #atHost(document, request, progress, work) {
    document.usesHost = true;
    const onWaiting = (ahead) => progress.tell({ state: "waiting", ahead });
    return this.#inTurn(this.#hostQueue, request.limit, onWaiting, async () => {
      // The permission has to hold now, not only when the request came.
      if (!(await this.#stillMay(document, request))) throw await this.#denialOf(document);
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
    const { operation, values } = request;
    if (!operation.signs) return this.#request(document, request, operation, values);
    try {
      const hadToChoose = await this.#chooseIfNeeded(document, request);
      const result = await this.#request(document, request, operation, values);
      const isSilent = !request.wasAsked && !operation.userChooses && !hadToChoose;
      await this.#keep(document, request, { outcome: "signed", result, isSilent });
      return result;
    } catch (error) {
      await this.#keep(document, request, { outcome: error.code ?? "HOST_EXITED", isSilent: false });
      throw error;
    }
  }

  // The host signs with any certificate of the token, and remembers a PIN that may have been typed for another site: the user
  // has to have chosen this very certificate for this site, in this run of the host.
  async #chooseIfNeeded(document, request) {
    const { operation, values } = request;
    if (operation.userChooses || request.run) return false;
    await this.#host.keepTime();
    const isChosen = () => this.#host.run?.sites.hasChosen(document, values.certThumbPrint);
    if (isChosen()) return false;
    await this.#request(document, request, operationOf("selectCertificate"), {});
    if (!isChosen()) throw new QuillmarkError("CERTIFICATE_NOT_FOUND");
    return true;
  }

  async #request(document, { limit, run: chosenIn }, operation, values) {
    // Where the user does not choose, another run of the host is another choice.
    const run = operation.userChooses ? undefined : (chosenIn ?? this.#host.run);
    const result = operation.result(await this.#host.request(operation.toProgram(values), limit.signal, { run }));
    if (operation.userChooses) document.engagedAt = Date.now();
    await this.#note(document, operation, values, result);
    return result;
  }

  async #note(document, operation, values, result) {
    const { sites } = this.#host.run ?? {};
    if (!sites) return;
    sites.add(document);
    if (operation.signs) this.#host.run.loggedIn = true;
    const thumbprint = operation.userChooses && (await operation.certificate?.(values, result));
    if (thumbprint) sites.choose(document, thumbprint, result.SelCertSubject);
  }

  // A journal that cannot be written keeps nobody from his signature.
  async #keep({ origin, isPrivate }, { name, operation, values, subject: known }, { outcome, result, isSilent }) {
    try {
      const { algorithm, digest } = await operation.signs(values);
      const certificate = (result && (await operation.certificate?.(values, result))) ?? null;
      const subject = known ?? this.#host.run?.sites.subjectOf(certificate) ?? null;
      await this.#signatures.add(
        { origin, operation: name, algorithm, digest, certificate, subject, outcome },
        { isPrivate, isSilent },
      );
    } catch (error) {
      console.error("The journal could not be written:", error);
    }
  }
}

// The page may have gone meanwhile.
function post(port, message) {
  try {
    port.postMessage(message);
  } catch {
    // Nobody is left to be told.
  }
}
