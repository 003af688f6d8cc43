import { QuillmarkError } from "../../quillmark.js";
import { message } from "../messages.js";

/** The error for a document that is not signed, with the message of a reason. */
export const refusal = (reason, ...values) =>
  new QuillmarkError("DOCUMENT_REFUSED", { message: message("refusal_document", message(reason, ...values)) });

/** The reason for a document that one reader draws otherwise than another. */
export const AMBIGUOUS = "refusal_ambiguous";

/** Calls `work`; what a damaged file makes of it becomes a refusal. */
export function orRefuse(reason, work) {
  try {
    return work();
  } catch (error) {
    if (error instanceof QuillmarkError) throw error;
    throw Object.assign(refusal(reason), { cause: error });
  }
}
