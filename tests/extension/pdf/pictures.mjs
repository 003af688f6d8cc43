/** Pictures that some readers draw and others do not. */

const number = (value) => {
  const bytes = Buffer.alloc(4);
  bytes.writeUInt32BE(value);
  return bytes;
};
const segment = (index, type, data) => Buffer.concat([number(index), Buffer.from([type, 0, 1]), number(data.length), data]);

/** A white JBIG2 picture of 128 x 128 dots, put onto its page by this operator: 0 (or) and, what pdf.js cannot, 4 (replace). */
export function jbig2(operator) {
  const size = [number(128), number(128), number(0), number(0)];
  const page = Buffer.concat([...size, Buffer.from([0x40, 0, 0])]);
  // In its encoding a line that is as the one before is a single 1.
  const region = Buffer.concat([...size, Buffer.from([operator, 1]), Buffer.alloc(16, 0xff)]);
  return Buffer.concat([segment(0, 48, page), segment(1, 38, region)]);
}
