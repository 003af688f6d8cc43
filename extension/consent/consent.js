// The consent window: shows the question that the background holds for it, and sends the user's answer back.

const api = globalThis.browser ?? globalThis.chrome;

// A window that opens under a moving mouse must not take a click that was meant for the page below.
const UNARMED_MS = 600;

const ASKS = {
  selectCertificate: [
    "It asks you to choose a certificate",
    "The site then reads the certificate: your name, your e-mail address if it is in it, and your public key.",
  ],
  signGstReturn: ["It asks you to sign this text, for a GST return", "You choose the certificate and type your PIN next."],
  signItReturn: ["It asks you to sign an income-tax return", "You choose the certificate and type your PIN next."],
  signPdfHash: [
    "It asks you to sign a PDF document",
    "Only the document's fingerprint is signed, so the document cannot be shown here. Read it on the site first.",
  ],
  signAuthToken: ["It asks you to sign this text, to prove who you are", "You choose the certificate and type your PIN next."],
};

const element = (id) => document.getElementById(id);
const buttons = [...document.querySelectorAll("button")];

const id = location.hash.slice(1);
const port = api.runtime.connect({ name: "consent" });
port.onMessage.addListener((message) => (message.type === "question" ? show(message.question) : showGone()));
port.onDisconnect.addListener(showGone);
port.postMessage({ type: "ready", id });

for (const button of buttons) {
  button.addEventListener("click", () => {
    for (const each of buttons) each.disabled = true;
    port.postMessage({ type: "answer", id, answer: button.value });
  });
}

function show({ origin, framed, incognito, operation, preview }) {
  const [asks, consequence] = ASKS[operation];
  element("origin").textContent = origin;
  element("framed").hidden = !framed;
  element("asks").textContent = asks;
  element("consequence").textContent = consequence;
  // A private window leaves no trace, so it cannot add to the list.
  element("always").hidden = incognito;
  if (preview) {
    element("preview").textContent = visible(preview.text);
    element("preview").hidden = false;
    element("cut").textContent = `The first ${preview.text.length} of ${preview.characters} characters are shown.`;
    element("cut").hidden = preview.text.length === preview.characters;
  }
  element("question").hidden = false;
  setTimeout(arm, UNARMED_MS, origin);
}

function arm(origin) {
  document.title = `Quillmark - Allow ${origin}?`;
  for (const button of buttons) button.disabled = false;
  element("deny").focus();
}

function showGone() {
  element("question").hidden = true;
  element("gone").hidden = false;
}

// Characters that would hide or reorder others are shown by their numbers, so that the text reads as it will be signed.
function visible(text) {
  return text.replace(/[\p{Cc}\p{Cf}]/gu, (character) =>
    "\n\t".includes(character) ? character : `<U+${character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}>`,
  );
}
