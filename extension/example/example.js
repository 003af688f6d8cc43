/** What a page does to have the user's PDF documents signed. Copy it. */

import { QuillmarkError, signPdfs, status } from "./quillmark.js";

const element = (id) => document.getElementById(id);
let withdrawal;

element("documents").addEventListener("submit", async (event) => {
  event.preventDefault();
  if (isBusy()) return;
  const [files, reason] = [[...element("files").files], element("reason").value];
  const visible = element("visible").checked; // or a place of yours: {page, x, y, width, height}
  withdrawal = new AbortController();
  element("outcomes").replaceChildren();
  setBusy(true);
  try {
    await signPdfs(files.map((document) => ({ document, reason, visible })), {
      signal: withdrawal.signal,
      onProgress: ({ state }) => (element("working-words").textContent = WORDS[state]),
      onResult: (i, { value, reason: error }) => tell(files[i].name, value ? linkTo(value, files[i].name) : wordsFor(error)),
    });
  } catch (error) {
    tell("Nothing was signed", wordsFor(error));
  } finally {
    setBusy(false);
  }
});
element("withdraw").addEventListener("click", () => withdrawal.abort());

const WORDS = {
  waiting: "Other requests come first…",
  consent: "The extension shows your documents in a window of its own.",
  working: "Choose your certificate and type your PIN in Quillmark's own window, if it is open.",
};

function tell(name, what) {
  const item = document.createElement("li");
  item.append(`${name}: `, what);
  element("outcomes").append(item);
}

function linkTo(signed, name) {
  const href = URL.createObjectURL(new Blob([signed], { type: "application/pdf" }));
  const download = name.replace(/(\.pdf)?$/i, "-signed.pdf");
  return Object.assign(document.createElement("a"), { href, download, textContent: `Save ${download}` });
}

// The message is for people and says what to do; code, ckr and detail are for you.
const wordsFor = (error) =>
  error instanceof QuillmarkError ? `${error.message} (${[error.code, error.ckr, error.detail].filter(Boolean).join(", ")})` : String(error);

// The button keeps the keyboard, so that the user is where he was when all windows have closed.
const isBusy = () => element("sign").ariaDisabled === "true";
function setBusy(value) {
  if (!value && element("working").contains(document.activeElement)) element("sign").focus();
  element("working").hidden = !value;
  element("sign").ariaDisabled = String(value);
}

const { extension, permission } = await status();
element("status").textContent =
  extension === null ? "The Quillmark extension is not here. Install it, then reload this page."
  : permission === "denied" ? "The extension is here, but this site is not allowed to ask for signatures."
  : `The extension is ready (version ${extension}).`;
