/** XML signatures with the user's token: XML-DSig with the properties of XAdES baseline B, on xadesjs, which the page brings. */

import { QuillmarkError, selectCertificate, signAuthTokenWithCertificate } from "quillmark";
import { SignedXml, xml as xades } from "xadesjs";

const EXCLUSIVE = "http://www.w3.org/2001/10/xml-exc-c14n#";
const HASHES = ["SHA-256", "SHA-384", "SHA-512"];

export async function signXml(text, { hashAlgorithm = "SHA-256", certificate, ...options } = {}) {
  if (!HASHES.includes(hashAlgorithm)) throw new QuillmarkError("UNSUPPORTED_HASH", { lang: options.lang });
  const document = parsed(text, options.lang);
  const signer = certificate ?? (await selectCertificate(options));
  const signed = await prepared(document, signer, hashAlgorithm);
  const signedInfo = signed.TransformSignedInfo(document);
  const { signature } = await signAuthTokenWithCertificate(signedInfo, { ...options, hashAlgorithm, certificate: signer });
  signed.XmlSignature.SignatureValue = Uint8Array.from(atob(signature), (character) => character.charCodeAt(0));
  document.documentElement.appendChild(document.importNode(signed.GetXml(), true));
  return new XMLSerializer().serializeToString(document);
}

// A document type can give attributes and entities to what is signed that the reader of the signature does not see.
function parsed(text, lang) {
  const document = new DOMParser().parseFromString(text, "application/xml");
  if (document.doctype) throw invalid("The XML document has a document type, and is not signed with one.", lang);
  const [error] = document.getElementsByTagName("parsererror");
  if (error) throw invalid(`The text is no XML document: ${error.textContent}`, lang);
  return document;
}

// The library knows no signer outside of itself. It signs with a key of the moment, and the token's signature takes the place of
// that one.
async function prepared(document, { Cert }, hashAlgorithm) {
  const algorithm = { name: "RSASSA-PKCS1-v1_5", hash: hashAlgorithm };
  const size = { modulusLength: 2048, publicExponent: new Uint8Array([1, 0, 1]) };
  const { privateKey } = await crypto.subtle.generateKey({ ...algorithm, ...size }, false, ["sign", "verify"]);
  const signed = new SignedXml();
  signed.XmlSignature.SignedInfo.CanonicalizationMethod.Algorithm = EXCLUSIVE;
  const id = `document-${crypto.randomUUID()}`;
  const format = new xades.DataObjectFormat();
  format.ObjectReference = `#${id}`;
  format.MimeType = "text/xml";
  signed.SignedProperties.SignedDataObjectProperties.DataObjectFormats.Add(format);
  await signed.Sign(algorithm, privateKey, document, {
    x509: [Cert],
    signingCertificateV2: { certificate: Cert, digestAlgorithm: hashAlgorithm },
    references: [{ id, uri: "", hash: hashAlgorithm, transforms: ["enveloped", "exc-c14n"] }],
  });
  return signed;
}

const invalid = (detail, lang) => new QuillmarkError("INVALID_ARGUMENT", { detail, lang });
