/** The extension's background: ties the parts to the browser. Nothing here outlives a stop by the browser but storage. */

import { QuestionRules } from "./asking.js";
import { Consent } from "./consent.js";
import { Host } from "./host.js";
import { Journal } from "./journal.js";
import { SURROUNDINGS_MS } from "./limits.js";
import { Panel } from "./panel.js";
import { Permissions } from "./permissions.js";
import { PolicySource } from "./policy.js";
import { Service } from "./service.js";
import { Settings } from "./settings.js";
import { Signatures } from "./signatures.js";

const api = globalThis.browser ?? globalThis.chrome;
const { local: user, session, managed } = api.storage;

// Chromium would let our script in a page, and so a page's process that was taken over, write what is allowed.
void user.setAccessLevel?.({ accessLevel: "TRUSTED_CONTEXTS" });

const CONSENT_PAGE = api.runtime.getURL("consent/consent.html");
const DOCUMENTS_PAGE = api.runtime.getURL("viewer/viewer.html");
const PANEL_PAGES = ["options/options.html", "popup/popup.html"].map((path) => api.runtime.getURL(path));

const policy = new PolicySource({ managed, session });
const settings = new Settings({ user, policy });
const permissions = new Permissions({ user, policy });
const journal = new Journal(user);
const signatures = new Signatures({
  journal,
  session,
  showCount: (number) => api.action.setBadgeText({ text: number === 0 ? "" : String(number) }),
});
const host = new Host({
  connectNative: (name) => api.runtime.connectNative(name),
  // Firefox tells with the port, Chromium with the event.
  lastError: (port) => (port.error ?? api.runtime.lastError)?.message,
  pinLife: () => settings.pinLife(),
});
const consent = new Consent({ windows: api.windows, pageUrl: CONSENT_PAGE, documentsUrl: DOCUMENTS_PAGE });
const service = new Service({
  permissions,
  rules: new QuestionRules({ session, tabs: api.tabs, windows: api.windows }),
  consent,
  host,
  signatures,
  surroundings,
  version: api.runtime.getManifest().version,
});
const panel = new Panel({ service, host, signatures, journal, permissions, settings, policy, user });

api.runtime.onConnect.addListener((port) => {
  if (port.name === "page") service.connect(port);
  else if (port.name === "consent" && isOwnPage(port.sender, [CONSENT_PAGE, DOCUMENTS_PAGE])) consent.connect(port);
  else port.disconnect();
});

api.runtime.onMessage.addListener((message, sender, reply) => {
  if (!isOwnPage(sender, PANEL_PAGES)) return false;
  panel.answer(message).then(reply, (error) => reply({ error: String(error) }));
  return true; // the reply comes later
});

// Permissions that are taken back end what they have begun, whoever has changed them.
api.storage.onChanged.addListener((changes, area) => {
  const isJournal = Object.keys(changes).every((name) => name.startsWith("journal"));
  if (area === "session" || isJournal) return;
  void service.recheck();
  void host.keepTime();
});

// Chromium alone tells of a locked screen.
api.idle?.onStateChanged.addListener((state) => {
  if (state === "locked") host.close("HOST_EXITED", "The screen was locked.");
});

// Begins the background with the browser, so that the administrator's settings are there when the first page asks.
api.runtime.onStartup.addListener(() => {});

// Our own script in the tab's page answers. It is in each page that is https or on this computer. A page that is busy for ever
// holds up no question.
function surroundings(tabId) {
  const answer = api.tabs.sendMessage(tabId, "origin", { frameId: 0 }).catch(() => null);
  return Promise.race([answer, new Promise((resolve) => setTimeout(resolve, SURROUNDINGS_MS, null))]);
}

// By the address without what follows "#" or "?", which the browser gives and no page can claim.
function isOwnPage({ url = "" }, pages) {
  return pages.includes(url.split(/[#?]/)[0]);
}
