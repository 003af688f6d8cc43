/** The parts of the PDF library that the extension uses: its objects, and their reading and writing. */
export {
  PDFArray,
  PDFBool,
  PDFContext,
  PDFDict,
  PDFHexString,
  PDFName,
  PDFNumber,
  PDFObjectParser,
  PDFRawStream,
  PDFRef,
  PDFString,
} from "@cantoo/pdf-lib";
