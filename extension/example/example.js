/** What a page does with the page library, from the status to a signed PDF document. */

import { prepareSignature, sampleDocument } from "./pdf-signing.js";
import { QuillmarkError, selectCertificate, signGstReturn, signPdfHash, status, suitableDigest } from "./quillmark.js";

const element = (id) => document.getElementById(id);
let certificate;

onClick("choose", chooseCertificate);
onClick("sign-text", signText);
onClick("sign-pdf", signPdf);
showStatus();

async function showStatus() {
  const { extension, permission } = await status();
  element("status").textContent =
    extension === null ? "The Quillmark extension is not here. Install it, then reload this page."
    : permission === "denied" ? "The extension is here, but this site is not allowed to ask for signatures."
    : `The extension is ready (version ${extension}).`;
}

async function chooseCertificate(options) {
  certificate = await selectCertificate(options);
  const date = (text) => new Date(text).toLocaleDateString(undefined, { dateStyle: "medium" });
  element("subject").textContent = certificate.SelCertSubject;
  element("email").textContent = certificate.eMail || "(none)";
  element("validity").textContent = `${date(certificate.ValidFrom)} to ${date(certificate.ExpDate)}`;
  element("thumbprint").textContent = certificate.CertThumbPrint;
  element("certificate").hidden = false;
  return ["The certificate is chosen."];
}

async function signText(options) {
  const signed = await signGstReturn(element("text").value, options);
  const bytes = Uint8Array.from(atob(signed), (character) => character.charCodeAt(0));
  return ["The text is signed.", download(bytes, "application/pkcs7-mime", "signed-text.p7m")];
}

async function signPdf(options) {
  if (!certificate) await chooseCertificate(options);
  const [file] = element("pdf").files;
  const pdf = file ? await file.arrayBuffer() : await sampleDocument(["A sample document", `made ${new Date().toUTCString()}`]);

  // One digest in eight cannot be signed as it is, so the document is prepared again until its digest can.
  let prepared;
  const digest = await suitableDigest(async () => {
    prepared = await prepareSignature(pdf, { reason: "I approve this document" });
    return prepared.covered;
  });
  const pkcs7 = await signPdfHash(digest.hash, certificate.CertThumbPrint, { ...options, hashAlgorithm: digest.hashAlgorithm });
  const name = (file?.name ?? "sample.pdf").replace(/(\.pdf)?$/i, "-signed.pdf");
  return ["The document is signed.", download(prepared.insert(pkcs7), "application/pdf", name)];
}

/** Runs `action` when the button is clicked, shows how far it is, and what came of it. */
function onClick(id, action) {
  const button = element(id);
  const outcome = document.querySelector(`[data-for="${id}"]`);
  button.addEventListener("click", async () => {
    const controller = new AbortController();
    element("withdraw").onclick = () => controller.abort();
    outcome.replaceChildren();
    setBusy(true);
    try {
      outcome.replaceChildren(...(await action({ signal: controller.signal, onProgress: showProgress })));
      outcome.className = "outcome good";
    } catch (error) {
      outcome.replaceChildren(...wordsFor(error));
      outcome.className = "outcome bad";
    }
    setBusy(false);
    outcome.scrollIntoView({ block: "nearest" });
  });
}

function wordsFor(error) {
  if (!(error instanceof QuillmarkError)) return [`This did not work: ${error.message}`];
  const technical = document.createElement("small");
  technical.textContent = [error.code, error.ckr, error.detail].filter(Boolean).join(" · ");
  return [error.message, technical];
}

function setBusy(busy) {
  for (const id of ["choose", "sign-text", "sign-pdf"]) element(id).disabled = busy;
  if (!busy) element("working").hidden = true;
}

function showProgress({ state, ahead }) {
  element("working").hidden = false;
  element("working-words").textContent = {
    waiting: `Waiting for ${ahead} other ${ahead === 1 ? "request" : "requests"}…`,
    consent: "The extension asks you in a window of its own.",
    working: "Quillmark is at work. If its window is open, choose your certificate and type your PIN there.",
  }[state];
}

function download(bytes, type, name) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([bytes], { type }));
  link.download = name;
  link.textContent = `Save ${name}`;
  return link;
}
