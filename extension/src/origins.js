/** Which origins can ask for signatures at all, and which of them an administrator's list means. */

import { message } from "./messages.js";

const LOCAL_HOSTS = ["localhost", "127.0.0.1"];

// Scheme, perhaps "*.", host, perhaps a port, perhaps one slash. What a URL parser would drop or decode is not let in.
const ENTRY = /^(https?:\/\/)(\*\.)?((?:[^\s/?#@\\%*:.[\]]+\.)*[^\s/?#@\\%*:.[\]]+|\[[\da-f:.]+\])(:[1-9]\d{0,4})?\/?$/;

/** Whether nobody between the site and this computer can change what the page asks: https, or http on this computer. */
export function isTrustworthy(origin) {
  const url = parsed(origin);
  // With a dot behind it a host is another one to browsers, and the same one to people.
  return url !== null && url.origin === origin && isProtected(url) && !url.hostname.endsWith(".");
}

function parsed(text) {
  try {
    return new URL(text);
  } catch {
    return null;
  }
}

const isProtected = ({ protocol, hostname }) =>
  protocol === "https:" || (protocol === "http:" && LOCAL_HOSTS.includes(hostname));

/**
 * What an entry of an administrator's list means: an origin ("https://example.org", "http://localhost:8080"), or
 * "https://*.example.org" for all names below a domain. Case, a trailing slash and the default port make no difference.
 * Throws an Error that says in words why an entry cannot be understood.
 *
 * @returns {{protocol: string, hostname: string, port: string, isPattern: boolean}}
 */
export function parseEntry(text) {
  if (typeof text !== "string") throw new Error(message("policy_no_text"));
  const [, scheme, star, host, ownPort = ""] = ENTRY.exec(trimmed(text).toLowerCase()) ?? [];
  const url = scheme ? parsed(scheme + host + ownPort) : null;
  if (!url || !isOrdinary(host, url.hostname)) {
    throw new Error(message("policy_no_origin"));
  }
  const { protocol, hostname, port } = url;
  if (!isProtected({ protocol, hostname })) throw new Error(message("policy_http"));
  if (star && (protocol !== "https:" || !hasTwoLabels(hostname))) {
    throw new Error(message("policy_pattern"));
  }
  return { protocol, hostname, port, isPattern: star !== undefined };
}

// Letters, digits and hyphens (RFC 1123, or of any script), which the URL parser has changed into nothing else but punycode.
function isOrdinary(host, hostname) {
  if (host.startsWith("[")) return true;
  const isUnchanged = hostname === host || /[^\0-\x7f]/.test(host);
  return /^[\p{L}\p{M}\p{N}_.-]+$/u.test(host) && isUnchanged && hostname.length <= 253 && !/[^.]{64}/.test(hostname);
}

const trimmed = (text) => text.replace(/^[ \t\n\r\f]+|[ \t\n\r\f]+$/g, "");

const hasTwoLabels = (hostname) => /^[^.[]+(\.[^.]+)+$/.test(hostname) && !/^[\d.]+$/.test(hostname);

/** Whether an entry means the origin. One without a port means the default port, or with `anyPort` all of them. */
export function isMeant(origin, entry, { anyPort }) {
  const { protocol, hostname, port } = new URL(origin);
  if (protocol !== entry.protocol) return false;
  if (port !== entry.port && !(anyPort && entry.port === "")) return false;
  return entry.isPattern ? hostname.endsWith(`.${entry.hostname}`) : hostname === entry.hostname;
}
