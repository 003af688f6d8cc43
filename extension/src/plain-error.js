import { QuillmarkError } from "../quillmark.js";

/** An error in the form in which it travels. What is no QuillmarkError is the browser's, about the port. */
export function plain(error) {
  if (!(error instanceof QuillmarkError)) return { ...plain(new QuillmarkError("HOST_EXITED")), detail: String(error) };
  const { code, message, detail, ckr } = error;
  return { code, message, detail, ckr };
}
