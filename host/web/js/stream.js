// One live MJPEG stream: pictures as they arrive, and how it ended.
//
// The stream is read with fetch rather than by an <img>: browsers do not tell a page when the pictures of an <img> stop
// coming, and a still picture that looks live is the one fault a camera page must not have.
import { ApiError, UNREACHABLE, refusalToWatch, unwrap } from './api.js';
import { MultipartReader } from './multipart.js';

export class LiveStream {
  #abort = new AbortController();
  #newest = null; // the picture to decode next; older ones are skipped when decoding falls behind
  #decoding = false;
  #onPicture;
  pictures = 0;

  // onPicture(bitmap): the receiver closes it. onEnd(error): an ApiError, or null when the stream simply ended; neither
  // is called after stop().
  constructor(url, onPicture, onEnd) {
    this.#onPicture = onPicture;
    this.#run(url).then(
      () => this.#stopped || onEnd(null),
      (error) => this.#stopped || onEnd(error instanceof ApiError ? error : null),
    );
  }

  stop() {
    this.#abort.abort();
    this.#newest = null;
  }

  get #stopped() {
    return this.#abort.signal.aborted;
  }

  async #run(url) {
    let response;
    try {
      response = await fetch(url, { cache: 'no-store', signal: this.#abort.signal });
    } catch {
      throw new ApiError(UNREACHABLE);
    }
    const type = response.headers.get('content-type') ?? '';
    if (type.includes('json')) refuse(await response.json());
    if (!type.startsWith('multipart/')) return response.body?.cancel();
    const parts = new MultipartReader((part) => this.#take(part));
    const reader = response.body.getReader();
    try {
      for (;;) {
        const { done, value } = await reader.read();
        if (done) return;
        parts.push(value);
      }
    } finally {
      this.#abort.signal.aborted || reader.cancel().catch(() => {});
    }
  }

  #take(part) {
    this.#newest = part;
    if (!this.#decoding) this.#decode();
  }

  async #decode() {
    this.#decoding = true;
    while (this.#newest) {
      const blob = new Blob([this.#newest], { type: 'image/jpeg' });
      this.#newest = null;
      const bitmap = await createImageBitmap(blob).catch(() => null); // a broken picture is left out
      if (!bitmap) continue;
      if (this.#stopped) bitmap.close();
      else {
        this.pictures += 1;
        this.#onPicture(bitmap);
      }
    }
    this.#decoding = false;
  }
}

function refuse(answer) {
  try {
    unwrap(answer);
  } catch (error) {
    throw refusalToWatch(error);
  }
}
