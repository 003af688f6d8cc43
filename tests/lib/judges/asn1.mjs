// The structure of DER as openssl reads it.

import { run } from "../process.mjs";

/**
 * The tree of a DER structure: { tag, header, bytes, children }. `tag` is openssl's word for it ("SEQUENCE", "OBJECT",
 * "cont [ 0 ]"), `header` the length of tag and length octets, `bytes` the whole element.
 */
export async function parseDer(der) {
  const { stdout } = await run("openssl", ["asn1parse", "-inform", "DER"], { input: der });
  const root = { children: [], depth: -1 };
  const open = [root];
  // Strings are printed as they are, with line breaks.
  const lines = stdout.toString("latin1").matchAll(/^ *(\d+):d=(\d+) +hl=(\d+) l= *(\d+) (?:prim|cons): ([^:\[\n]+(?:\[ \d+ \])?)/gm);
  for (const [, offset, depth, header, length, tag] of lines) {
    const start = Number(offset);
    const end = start + Number(header) + Number(length);
    const element = { tag: tag.trim(), depth: Number(depth), header: Number(header), bytes: der.subarray(start, end), children: [] };
    while (open.at(-1).depth >= element.depth) open.pop();
    open.at(-1).children.push(element);
    open.push(element);
  }
  return root.children[0];
}

/** The parts of a SignedData (RFC 5652) with one signer, by their names there, and its ContentInfo. */
export async function signedDataParts(der) {
  const contentInfo = await parseDer(der);
  const [contentType, explicit] = contentInfo.children;
  const [version, digestAlgorithms, content, certificates, signerInfos] = explicit.children[0].children;
  return { contentInfo, contentType, version, digestAlgorithms, content, certificates, signerInfo: signerInfos.children[0] };
}

/** The content octets of an element, without tag and length. */
export function contentOf(element) {
  return element.bytes.subarray(element.header);
}

/** The element as nested lists of tags: a shape to compare with. */
export function shapeOf(element) {
  return element.children.length > 0 ? [element.tag, ...element.children.map(shapeOf)] : element.tag;
}

/** The DER of an object identifier. */
export function oid(dotted) {
  const [first, second, ...rest] = dotted.split(".").map(Number);
  const octets = [first * 40 + second, ...rest].flatMap(base128);
  return Buffer.from([0x06, octets.length, ...octets]);
}

function base128(number) {
  const octets = [number % 128];
  for (let high = Math.floor(number / 128); high > 0; high = Math.floor(high / 128)) octets.unshift((high % 128) + 128);
  return octets;
}
