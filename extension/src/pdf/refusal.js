import { QuillmarkError } from "../../quillmark.js";

/** The error for a document that is not signed, with a reason in words for people. */
export const refusal = (reason) =>
  new QuillmarkError("DOCUMENT_REFUSED", { message: `This document cannot be signed: ${reason}` });

/** The reason for a document that one reader draws otherwise than another. */
export const AMBIGUOUS = "it has parts that some readers show and others do not. Save it anew in the program that it comes from.";

/** Calls `work`; what a damaged file makes of it becomes a refusal. */
export function orRefuse(reason, work) {
  try {
    return work();
  } catch (error) {
    if (error instanceof QuillmarkError) throw error;
    throw Object.assign(refusal(reason), { cause: error });
  }
}
