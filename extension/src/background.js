/** The extension's background: ties the parts to the browser. Nothing here outlives a stop by the browser but storage. */

import { Consent } from "./consent.js";
import { Host } from "./host.js";
import { Permissions } from "./permissions.js";
import { Service } from "./service.js";

const api = globalThis.browser ?? globalThis.chrome;

const CONSENT_PAGE = api.runtime.getURL("consent/consent.html");
const OPTIONS_PAGE = api.runtime.getURL("options/options.html");

const host = new Host({
  connectNative: (name) => api.runtime.connectNative(name),
  // Firefox tells with the port, Chromium with the event.
  lastError: (port) => (port.error ?? api.runtime.lastError)?.message,
});
const consent = new Consent({ windows: api.windows, pageUrl: CONSENT_PAGE });
const service = new Service({
  permissions: new Permissions({ user: api.storage.local, managed: api.storage.managed }),
  consent,
  host,
  version: api.runtime.getManifest().version,
});

api.runtime.onConnect.addListener((port) => {
  if (port.name === "page") service.connect(port);
  else if (port.name === "consent" && isOwnPage(port.sender, CONSENT_PAGE)) consent.connect(port);
  else port.disconnect();
});

// The options page shows whether the signing program runs, and can end it.
api.runtime.onMessage.addListener((message, sender, reply) => {
  if (!isOwnPage(sender, OPTIONS_PAGE)) return;
  if (message === "stopHost") host.close();
  reply({ hostRuns: host.run !== undefined });
});

api.action.onClicked.addListener(() => api.runtime.openOptionsPage());

// By the address without what follows "#" or "?", which the browser gives and no page can claim.
function isOwnPage({ url = "" }, page) {
  return url.split(/[#?]/)[0] === page;
}
