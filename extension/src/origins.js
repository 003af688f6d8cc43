/** Which origins can ask for signatures at all, and which of them an administrator's list means. */

const LOCAL_HOSTS = ["localhost", "127.0.0.1"];

/** Whether nobody between the site and this computer can change what the page asks: https, or http on this computer. */
export function isTrustworthy(origin) {
  if (!URL.canParse(origin)) return false;
  const url = new URL(origin);
  if (url.origin !== origin) return false;
  return url.protocol === "https:" || (url.protocol === "http:" && LOCAL_HOSTS.includes(url.hostname));
}

/**
 * Whether a list of patterns names the origin. A pattern is an origin ("https://example.org", "http://localhost:8080"),
 * or "https://*.example.org" for all names below a domain, on https's own port. What is no pattern names nothing.
 */
export function isListed(origin, patterns) {
  return patterns.some((pattern) => pattern === origin || (isBelowOf(pattern) && below(origin, pattern)));
}

const isBelowOf = (pattern) => /^https:\/\/\*\.[a-z0-9.-]+$/.test(pattern);

function below(origin, pattern) {
  const url = new URL(origin);
  return url.protocol === "https:" && url.port === "" && url.hostname.endsWith(pattern.slice("https://*".length));
}
