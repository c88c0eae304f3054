// One stream of pictures, live or recorded: its parts as they arrive, and how it ended.
//
// The stream is read with fetch rather than by an <img>: browsers do not tell a page when the pictures of an <img> stop
// coming, and a still picture that looks live is the one fault a camera page must not have.
import { ApiError, NO_SERVER, UNREACHABLE, refusalToWatch, unwrap } from './api.js';
import { MultipartReader } from './multipart.js';

export class PictureStream {
  #abort = new AbortController();
  #explain;

  // onPart(bytes) takes a part. onEnd(error): why it was refused, or null when the stream simply ended. Neither is called
  // after stop(). `explain` throws what an answer without pictures means.
  constructor(url, onPart, onEnd, explain = explainNoView) {
    this.#explain = explain;
    this.#run(url, onPart).then(
      () => this.#stopped || onEnd(null),
      (error) => this.#stopped || onEnd(error),
    );
  }

  stop() {
    this.#abort.abort();
  }

  get #stopped() {
    return this.#abort.signal.aborted;
  }

  async #run(url, onPart) {
    let response;
    try {
      response = await fetch(url, { cache: 'no-store', signal: this.#abort.signal });
    } catch {
      throw new ApiError(UNREACHABLE);
    }
    const type = response.headers.get('content-type') ?? '';
    if (!type.startsWith('multipart/')) {
      await this.#explain(response);
      return;
    }
    const parts = new MultipartReader((part) => this.#stopped || onPart(part));
    const reader = response.body.getReader();
    try {
      for (;;) {
        const { done, value } = await reader.read();
        if (done) return;
        parts.push(value);
      }
    } catch {
      // broken off, or no stream of pictures after all: it has ended
    } finally {
      this.#stopped || reader.cancel().catch(() => {});
    }
  }
}

async function explainNoView(response) {
  const type = response.headers.get('content-type') ?? '';
  if (type.includes('json')) refuse(await response.json().catch(() => null));
  if (type.startsWith('text/plain')) throw notYet(await response.text());
  response.body?.cancel();
}

function refuse(answer) {
  try {
    unwrap(answer);
  } catch (error) {
    throw refusalToWatch(error);
  }
}

// A camera of which the recorder holds no picture yet is refused in plain text, and so is one whose server is silent.
function notYet(text) {
  if (text.startsWith('Format not supported')) return new ApiError(NO_SERVER);
  return text.startsWith('Failed to view') ? new ApiError(403, 'The camera has not sent a picture yet.') : new ApiError(400);
}
