// The frames of native messaging: four bytes of length, then as many bytes of JSON text.

/** The length prefix as the browser writes it. */
export function prefix(length) {
  const bytes = Buffer.alloc(4);
  bytes.writeInt32LE(length);
  return bytes;
}

/** The frame of a text, of bytes, or of anything that JSON can say. */
export function frame(message) {
  const isRaw = typeof message === "string" || Buffer.isBuffer(message);
  const body = Buffer.from(isRaw ? message : JSON.stringify(message));
  return Buffer.concat([prefix(body.length), body]);
}

/** Cuts the bytes of a stream into frames. */
export class FrameReader {
  #bytes = Buffer.alloc(0);
  #frames = [];
  #waiting = [];
  #ended = false;

  constructor(stream) {
    stream.on("data", (chunk) => this.#take(chunk));
    stream.on("end", () => {
      this.#ended = true;
      this.#serve();
    });
  }

  /** The bytes that no complete frame has come from. */
  get rest() {
    return this.#bytes;
  }

  /** The next frame whole, prefix included; null when the stream ends without one. */
  next() {
    return new Promise((resolve) => {
      this.#waiting.push(resolve);
      this.#serve();
    });
  }

  #take(chunk) {
    this.#bytes = Buffer.concat([this.#bytes, chunk]);
    while (this.#bytes.length >= 4) {
      const end = 4 + this.#bytes.readUInt32LE();
      if (this.#bytes.length < end) break;
      this.#frames.push(this.#bytes.subarray(0, end));
      this.#bytes = this.#bytes.subarray(end);
    }
    this.#serve();
  }

  #serve() {
    while (this.#waiting.length > 0 && (this.#frames.length > 0 || this.#ended)) {
      this.#waiting.shift()(this.#frames.shift() ?? null);
    }
  }
}
