/** The PDF library's parser of objects, which refuses what readers take in different ways. */

import { PDFDict, PDFObjectParser } from "../../libraries/pdf-lib.js";
import { AMBIGUOUS, refusal } from "./refusal.js";

const LESS = 60;
const GREATER = 62;

export class Parser extends PDFObjectParser {
  static forBytes(bytes, context) {
    return new Parser(PDFObjectParser.forBytes(bytes, context).bytes, context);
  }

  // Of a key that stands twice some readers take the first value, others the last.
  parseDict() {
    const members = new Map();
    for (const byte of [LESS, LESS]) this.bytes.assertNext(byte);
    this.skipWhitespaceAndComments();
    while (this.bytes.peek() !== GREATER) {
      const key = this.parseName();
      if (members.has(key)) throw refusal(AMBIGUOUS);
      members.set(key, this.parseObject());
      this.skipWhitespaceAndComments();
    }
    for (const byte of [GREATER, GREATER]) this.bytes.assertNext(byte);
    return PDFDict.fromMapWithContext(members, this.context);
  }
}
