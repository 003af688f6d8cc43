/** Whether what says who was revoked speaks of the time in question. */

/** Clocks differ. */
export const MAX_SKEW_MS = 5 * 60_000;

/** An answer that does not say until when it holds is fresh for so long. */
const MAX_AGE_MS = 60 * 60_000;

/**
 * `thisUpdate` to `nextUpdate` has to reach beyond the time `at`; it may begin later, when it knows more. What was made after the
 * certificate's own end says nothing of it: authorities forget the certificates that have expired.
 */
export function isCurrent({ thisUpdate, nextUpdate }, certificate, { at, now }) {
  const end = nextUpdate ?? new Date(thisUpdate.getTime() + MAX_AGE_MS);
  return thisUpdate.getTime() <= now.getTime() + MAX_SKEW_MS && end > at && thisUpdate <= certificate.notAfter;
}
