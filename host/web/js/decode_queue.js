// Decodes JPEGs one after the other, off the page's thread, and hands them on in their order.

export class DecodeQueue {
  #waiting = []; // [pieces, tag]
  #busy = false;
  #stopped = false;
  #onPicture;

  // onPicture(bitmap, tag): null instead of a bitmap when the JPEG is broken. The bitmap is closed afterwards.
  constructor(onPicture) {
    this.#onPicture = onPicture;
  }

  // How many wait for the one that is being decoded.
  get length() {
    return this.#waiting.length;
  }

  get idle() {
    return !this.#busy;
  }

  // `pieces` make up the JPEG.
  push(pieces, tag) {
    this.#waiting.push([pieces, tag]);
    if (!this.#busy) this.#run();
  }

  clear() {
    this.#waiting = [];
  }

  // Nothing is handed on any more.
  stop() {
    this.#stopped = true;
    this.clear();
  }

  async #run() {
    this.#busy = true;
    while (this.#waiting.length > 0) {
      const [pieces, tag] = this.#waiting.shift();
      const bitmap = await createImageBitmap(new Blob(pieces, { type: 'image/jpeg' })).catch(() => null);
      if (!this.#stopped) this.#onPicture(bitmap, tag);
      bitmap?.close();
    }
    this.#busy = false;
  }
}
