/** What the extension uses for CMS structures and time stamps. */
export { fromBER } from "asn1js";
export {
  Attribute,
  Certificate,
  ContentInfo,
  CryptoEngine,
  SignedAndUnsignedAttributes,
  SignedData,
  TimeStampResp,
  TSTInfo,
} from "pkijs";
