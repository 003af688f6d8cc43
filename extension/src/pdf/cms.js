/** The CMS structure of a PDF signature: whether it holds for some bytes, and what is added to it behind the signing. */

import {
  Attribute, Certificate, ContentInfo, CryptoEngine, fromBER, SignedAndUnsignedAttributes, SignedData, TimeStampResp, TSTInfo,
} from "../../libraries/pkijs.js";
import { sameBytes } from "./bytes.js";

const SIGNED_DATA = "1.2.840.113549.1.7.2";
const TST_INFO = "1.2.840.113549.1.9.16.1.4";
const TIME_STAMP_TOKEN = "1.2.840.113549.1.9.16.2.14"; // RFC 3161, appendix A
const SHA256 = "2.16.840.1.101.3.4.2.1";
const COMMON_NAME = "2.5.4.3";
const UNSIGNED = 1;

// RFC 3161, 2.4.1: version 1, SHA-256, the digest, and the wish to have the authority's certificate in the answer.
const REQUEST_HEAD = [0x30, 0x39, 2, 1, 1, 0x30, 0x31, 0x30, 0x0d, 6, 9, 0x60, 0x86, 0x48, 1, 0x65, 3, 4, 2, 1, 5, 0, 4, 0x20];
const REQUEST_END = [1, 1, 0xff];

const engine = () => new CryptoEngine({ name: "browser", crypto: globalThis.crypto });

const bufferOf = (bytes) => bytes.slice().buffer;

/** The first structure in the bytes; those of a PDF signature have zeros behind it. */
function parsed(bytes) {
  const { offset, result } = fromBER(bufferOf(bytes));
  if (offset === -1) throw new Error("no ASN.1 structure");
  return result;
}

function signedDataOf(bytes) {
  const info = new ContentInfo({ schema: parsed(bytes) });
  if (info.contentType !== SIGNED_DATA) throw new Error("no SignedData");
  return new SignedData({ schema: info.content });
}

const derOf = (structure) => new Uint8Array(structure.toSchema().toBER());

/**
 * What a signature says: {isWhole, signer, certificate}. `isWhole`: its digest is that of the bytes, and its certificate's key
 * has made it; `signer`: the common name in the certificate, `certificate` its DER. Nothing is said of who has issued it.
 */
export async function readSignature(bytes, covered) {
  const data = signedDataOf(bytes);
  const { isWhole, certificate } = await verified(data, bufferOf(covered));
  return { isWhole, signer: nameIn(certificate), certificate: certificate && derOf(certificate) };
}

/** The same of a time stamp over the bytes: {isWhole, signer, certificate, time}. */
export async function readTimeStamp(bytes, covered) {
  const data = signedDataOf(bytes);
  const { genTime } = infoIn(data);
  const { isWhole, certificate } = await verified(data, bufferOf(covered));
  return { isWhole, signer: nameIn(certificate), certificate: certificate && derOf(certificate), time: genTime };
}

// Of a time stamp this compares its imprint with the content, too.

async function verified(data, content) {
  try {
    const { signatureVerified, signerCertificate } = await data.verify(
      { signer: 0, data: content, checkChain: false, extendedMode: true },
      engine(),
    );
    return { isWhole: data.signerInfos.length === 1 && signatureVerified === true, certificate: signerCertificate };
  } catch {
    return { isWhole: false, certificate: data.certificates?.find((each) => each instanceof Certificate) };
  }
}

/** The common name in a certificate (DER); "" when it has none. */
export const commonName = (der) => nameIn(new Certificate({ schema: parsed(der) }));

const nameIn = (certificate) =>
  certificate?.subject.typesAndValues.find(({ type }) => type === COMMON_NAME)?.value.valueBlock.value ?? "";

function infoIn(data) {
  if (data.encapContentInfo.eContentType !== TST_INFO) throw new Error("no time stamp");
  return new TSTInfo({ schema: parsed(new Uint8Array(data.encapContentInfo.eContent.getValue())) });
}

/** What a signature's time stamp is asked with: {stamped, digest, request}: bytes, their SHA-256, a request as in RFC 3161. */
export async function timeStampRequest(signature) {
  const stamped = signedDataOf(signature).signerInfos[0].signature.valueBlock.valueHexView;
  const digest = new Uint8Array(await crypto.subtle.digest("SHA-256", stamped));
  return { stamped, digest, request: Uint8Array.from([...REQUEST_HEAD, ...digest, ...REQUEST_END]) };
}

/** The token in an authority's answer (DER) to this request. Throws an Error when it grants none, or one for something else. */
export async function tokenIn(answer, { stamped, digest }) {
  const response = new TimeStampResp({ schema: parsed(answer) });
  if (response.status.status > 1 || !response.timeStampToken) throw new Error("The authority has not granted the time stamp.");
  const data = new SignedData({ schema: response.timeStampToken.content });
  const { hashAlgorithm, hashedMessage } = infoIn(data).messageImprint;
  const isItsOwn = hashAlgorithm.algorithmId === SHA256 && sameBytes(hashedMessage.valueBlock.valueHexView, digest);
  if (!isItsOwn) throw new Error("The time stamp is for another signature.");
  if (!(await verified(data, bufferOf(stamped))).isWhole) throw new Error("The time stamp is not whole.");
  return response.timeStampToken;
}

/** The signature with certificates (DER) beside the signer's, and the token of a time stamp where there is one. */
export function extended(signature, { chain, token }) {
  const data = signedDataOf(signature);
  for (const der of chain) data.certificates.push(new Certificate({ schema: parsed(der) }));
  if (token) {
    const attribute = new Attribute({ type: TIME_STAMP_TOKEN, values: [token.toSchema()] });
    data.signerInfos[0].unsignedAttrs = new SignedAndUnsignedAttributes({ type: UNSIGNED, attributes: [attribute] });
  }
  const info = new ContentInfo({ contentType: SIGNED_DATA, content: data.toSchema(true) });
  return derOf(info);
}
