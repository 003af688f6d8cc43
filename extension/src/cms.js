/** The one thing that the extension reads in a CMS SignedData (RFC 5652): the certificate that is in it. */

const SEQUENCE = 0x30;
const CONTEXT_0 = 0xa0;

/** The first certificate in the structure (DER), as bytes; undefined when there is none where it should be. */
export function certificateIn(bytes) {
  const contentInfo = elementAt(bytes, 0);
  const content = contentInfo && childrenOf(contentInfo).find(({ tag }) => tag === CONTEXT_0);
  const [signedData] = content ? childrenOf(content) : [];
  const certificates = signedData && childrenOf(signedData).find(({ tag }) => tag === CONTEXT_0);
  const [first] = certificates ? childrenOf(certificates) : [];
  return first?.tag === SEQUENCE ? first.whole : undefined;
}

function childrenOf({ content }) {
  const children = [];
  for (let at = 0; at < content.length; ) {
    const child = elementAt(content, at);
    if (!child) return [];
    children.push(child);
    at += child.whole.length;
  }
  return children;
}

// Tag, length and content of the element at this place (X.690 section 8.1); undefined when it is not all there.
function elementAt(bytes, at) {
  const [tag, first] = bytes.subarray(at, at + 2);
  const lengthBytes = first < 0x80 ? 0 : first & 0x7f;
  if (first === undefined || first === 0x80 || lengthBytes > 4) return undefined;
  const length = lengthBytes === 0 ? first : bytes.subarray(at + 2, at + 2 + lengthBytes).reduce((sum, byte) => sum * 256 + byte, 0);
  const start = at + 2 + lengthBytes;
  if (start + length > bytes.length) return undefined;
  return { tag, content: bytes.subarray(start, start + length), whole: bytes.subarray(at, start + length) };
}
