// Shows a camera's live MJPEG in a canvas. What a player is stands in picture.js.
import { url } from './api.js';
import { LiveStream } from './stream.js';

export class MjpegPlayer {
  #context;
  #stream = null;
  #onMove;
  #onEnd;
  element = document.createElement('canvas');

  constructor(onMove, onEnd) {
    this.#onMove = onMove;
    this.#onEnd = onEnd;
    this.#context = this.element.getContext('bitmaprenderer');
  }

  get size() {
    return { width: this.element.width, height: this.element.height };
  }

  get pictures() {
    return this.#stream?.pictures ?? 0;
  }

  get delay() {
    return null; // pictures are shown as they come
  }

  open(camera, view) {
    const params = { cameraId: camera.id, format: 'mjpeg', timestamp: view };
    const address = url('VELM.Oculora.Stream.VideoStreaming', 'Stream', params);
    this.#stream = new LiveStream(address, (bitmap) => this.#paint(bitmap), this.#onEnd);
  }

  close() {
    this.#stream?.stop();
    this.#stream = null;
  }

  #paint(bitmap) {
    const { width, height } = bitmap;
    if (this.element.width !== width || this.element.height !== height) Object.assign(this.element, { width, height });
    this.#context.transferFromImageBitmap(bitmap);
    this.#onMove();
  }
}
