/** The sites that a run of the signing program has served, and the certificates that the user has chosen for each of them. */
export class Sites {
  #origins = new Set();
  #choices = new Set();
  #subjects = new Map();

  /** Notes that the host was asked for the document. */
  add({ origin }) {
    this.#origins.add(origin);
  }

  has(origin) {
    return this.#origins.has(origin);
  }

  /** Notes that the user has chosen the certificate for the document's site; `subject` where it is known. */
  choose(document, thumbprint, subject) {
    this.#choices.add(choice(document, thumbprint));
    if (subject) this.#subjects.set(thumbprint, subject);
  }

  /** Whether the user has chosen this very certificate for the document's site. */
  hasChosen(document, thumbprint) {
    return this.#choices.has(choice(document, thumbprint));
  }

  /** The subject of a certificate that was chosen for any site; null when it is not known. */
  subjectOf(thumbprint) {
    return this.#subjects.get(thumbprint) ?? null;
  }
}

// A private window is another site than the same one outside.
const choice = ({ origin, isPrivate }, thumbprint) => JSON.stringify([origin, isPrivate, thumbprint]);
