import type { Certificate, RequestOptions } from "quillmark";

export interface XmlOptions extends RequestOptions {
  /** "SHA-256" when left out. */
  hashAlgorithm?: "SHA-256" | "SHA-384" | "SHA-512";
  /** What an earlier `selectCertificate` gave; the user is asked for one when left out. */
  certificate?: Certificate;
}

/**
 * Signs an XML document as a whole, and gives it with the signature as the last child of its root: enveloped, exclusive
 * canonicalisation, RSA (PKCS#1 v1.5), with the certificate in X509Data and the signed properties of XAdES baseline B (time,
 * certificate, format). The time is that of the user's computer.
 *
 * The user chooses the certificate first, for it stands in what is signed, and once more when it is signed. Rejects with
 * CERTIFICATE_NOT_FOUND when that is another one, and with INVALID_ARGUMENT for a text that is no XML document or has a document type.
 */
export function signXml(text: string, options?: XmlOptions): Promise<string>;
