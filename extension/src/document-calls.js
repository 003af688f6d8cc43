/** What the window that shows documents asks for: the page's bytes and time stamps, and the signing program's work. */

import { QuillmarkError } from "../quillmark.js";
import { operationOf } from "./operations.js";

// A certificate that was chosen for documents in sight is not chosen for what the site may ask for unseen.
const CHOICE = { ...operationOf("selectCertificate"), certificate: undefined };
const SIGNATURE = operationOf("signPdfHash");

/**
 * The calls for a request, by their names. `program`: {choose(operation), sign({operation, values, run, subject}), run()}.
 * Signatures are made when the user has answered, and with the certificate that was chosen in this very run of the host.
 */
export function callsOf(request, program) {
  const { queries } = request;
  let chosen;

  const requireAnswer = async () => {
    if ((await request.answered) === "none") throw new QuillmarkError("ORIGIN_DENIED");
  };

  return {
    /** A piece of a document, in Base64. */
    async piece({ document, at, length }) {
      const text = await queries.ask({ what: "piece", document, at, length });
      if (text === null) throw new QuillmarkError("ABORTED", { detail: "The page did not give its document." });
      return text;
    },

    /** The certificate that the user chooses for all documents: the host's record of it. */
    async choose() {
      await requireAnswer();
      const record = await program.choose(CHOICE);
      chosen = { certThumbPrint: record.CertThumbPrint, subject: record.SelCertSubject, run: program.run() };
      return record;
    },

    /** The signature (CMS, Base64) over a digest (SHA-256, Base64). */
    async sign({ hash }) {
      await requireAnswer();
      const { certThumbPrint, subject, run } = chosen;
      if (!run) throw new QuillmarkError("HOST_EXITED");
      const values = SIGNATURE.check({ hash, certThumbPrint, hashAlgorithm: "SHA-256" });
      return program.sign({ operation: SIGNATURE, values, run, subject, wasAsked: true });
    },

    /** The page's answer to a request for a time stamp, both in Base64. */
    async timeStamp({ digest, request: wanted }) {
      const text = await queries.ask({ what: "timeStamp", digest, request: wanted });
      if (text === null) throw new QuillmarkError("TIMESTAMP_FAILED");
      return text;
    },

    /** Ends the request with an error. */
    fail({ code, ...more }) {
      request.limit.abort(new QuillmarkError(code, more));
    },

    /** Tells the page what became of a document: the bytes to append, in Base64, or an error. */
    async tell({ document, appended, error }) {
      await queries.ask({ what: "outcome", document, appended, error });
    },
  };
}
