// Cuts a multipart/x-mixed-replace body into its parts. Pure: bytes in, parts out.

const MAX_HEADER = 8192;
const decoder = new TextDecoder('latin1');

export class MultipartError extends Error {}

// A feeder: push(chunk) hands every part that is complete to onPart(bytes). Parts must carry a Content-Length.
export class MultipartReader {
  #onPart;
  #maxPart;
  #header = '';
  #body = null; // the part being filled
  #filled = 0;

  constructor(onPart, maxPart = 16 << 20) {
    this.#onPart = onPart;
    this.#maxPart = maxPart;
  }

  push(chunk) {
    let at = 0;
    while (at < chunk.length) at = this.#body ? this.#takeBody(chunk, at) : this.#takeHeader(chunk, at);
  }

  // Boundary lines and part headers, up to the empty line that ends them.
  #takeHeader(chunk, at) {
    const before = this.#header.length;
    this.#header += decoder.decode(chunk.subarray(at, at + MAX_HEADER));
    const end = this.#header.indexOf('\r\n\r\n', Math.max(0, before - 3));
    if (end < 0) {
      if (this.#header.length > MAX_HEADER) throw new MultipartError('part header too long');
      return at + MAX_HEADER;
    }
    const header = this.#header.slice(0, end + 2);
    this.#header = '';
    const next = at + end + 4 - before;
    const length = /^content-length:\s*(\d+)\s*$/im.exec(header);
    if (!length) {
      if (/^content-type:/im.test(header)) throw new MultipartError('part without a length');
      return next; // only the line end after a part, or a preamble
    }
    const size = Number(length[1]);
    if (size > this.#maxPart) throw new MultipartError('part too large');
    if (size > 0) this.#body = new Uint8Array(size);
    this.#filled = 0;
    return next;
  }

  #takeBody(chunk, at) {
    const piece = chunk.subarray(at, at + this.#body.length - this.#filled);
    this.#body.set(piece, this.#filled);
    this.#filled += piece.length;
    if (this.#filled === this.#body.length) {
      const part = this.#body;
      this.#body = null;
      this.#onPart(part);
    }
    return at + piece.length;
  }
}
