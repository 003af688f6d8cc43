/** The picture of a visible signature: who, when, why. Drawn by the browser, so that every script is drawn as it is written. */

// Dots for a point: sharp on paper too.
const SCALE = 4;
const LARGEST = 2400;
const PADDING = 3;

/** The picture for a rectangle of this size in points: {width, height, rgb}. What does not fit into the width is made smaller. */
export function pictureOf({ signer, reason, time, width, height }) {
  const scale = Math.min(SCALE, LARGEST / Math.max(width, height));
  const canvas = new OffscreenCanvas(Math.max(1, Math.round(width * scale)), Math.max(1, Math.round(height * scale)));
  const context = canvas.getContext("2d");
  context.scale(scale, scale);
  context.fillStyle = "#ffffff";
  context.fillRect(0, 0, width, height);
  context.strokeStyle = "#1d4f91";
  context.strokeRect(0.5, 0.5, width - 1, height - 1);
  context.fillStyle = "#1b2430";
  const lines = [`Signed by ${signer}`, dateOf(time), ...(reason ? [reason] : [])];
  const step = (height - 2 * PADDING) / lines.length;
  lines.forEach((line, i) => {
    context.font = `${i === 0 ? "bold " : ""}${Math.min(step * 0.75, 12)}px sans-serif`;
    context.textBaseline = "middle";
    context.fillText(line, PADDING + 1, PADDING + step * (i + 0.5), width - 2 * PADDING - 2);
  });
  const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
  return { width: canvas.width, height: canvas.height, rgb: data.filter((_, i) => i % 4 !== 3) };
}

const dateOf = (time) => `${time.toISOString().slice(0, 19).replace("T", " ")} UTC`;
