// The settings page: lists who may ask, takes permissions back, and ends the signing program.

import { Permissions } from "../src/permissions.js";

const api = globalThis.browser ?? globalThis.chrome;
const permissions = new Permissions({ user: api.storage.local, managed: api.storage.managed });
const element = (id) => document.getElementById(id);

api.storage.onChanged.addListener(showSites);
element("stop").addEventListener("click", () => tellBackground("stopHost"));

showSites();
showPolicy();
tellBackground("isHostRunning");

async function showSites() {
  const origins = await permissions.usersOrigins();
  element("sites").replaceChildren(...origins.map((origin) => row(origin, removeButton(origin))));
  element("no-sites").hidden = origins.length > 0;
}

async function showPolicy() {
  const { allowedOrigins, deniedOrigins, onlyAllowedOrigins } = await permissions.policy();
  element("policy").hidden = allowedOrigins.length + deniedOrigins.length === 0 && !onlyAllowedOrigins;
  element("only-allowed").hidden = !onlyAllowedOrigins;
  element("policy-sites").replaceChildren(
    ...allowedOrigins.map((origin) => row(origin, label("allowed"))),
    ...deniedOrigins.map((origin) => row(origin, label("denied"))),
  );
}

async function tellBackground(message) {
  const { hostRuns } = await api.runtime.sendMessage(message);
  element("runs").hidden = element("stop").hidden = !hostRuns;
  element("rests").hidden = hostRuns;
}

function row(origin, end) {
  const item = document.createElement("li");
  const name = document.createElement("span");
  name.className = "origin";
  name.textContent = origin;
  item.append(name, end);
  return item;
}

function removeButton(origin) {
  const button = document.createElement("button");
  button.type = "button";
  button.textContent = "Remove";
  button.setAttribute("aria-label", `Remove ${origin}`);
  button.addEventListener("click", async () => {
    await permissions.revoke(origin);
    element("announcement").textContent = `${origin} was removed. It will be asked about again.`;
  });
  return button;
}

function label(word) {
  const text = document.createElement("span");
  text.className = word;
  text.textContent = word;
  return text;
}
