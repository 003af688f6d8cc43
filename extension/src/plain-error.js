import { messageOf, QuillmarkError } from "../quillmark.js";

/**
 * An error in the form in which it travels, as QuillmarkError takes it: `message` only where it says more than its code, for
 * whoever shows it says that in his language. What is no QuillmarkError is the browser's, about the
 * port.
 */
export function plain(error) {
  if (!(error instanceof QuillmarkError)) return { ...plain(new QuillmarkError("HOST_EXITED")), detail: String(error) };
  const { code, message, reason, detail, ckr } = error;
  return { code, message: message === messageOf(code, undefined, reason) ? undefined : message, words: message, reason, detail, ckr };
}
