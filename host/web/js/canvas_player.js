// What players have in common that paint the parts of a stream in a canvas. What a player is stands in picture.js.
import { url } from './api.js';
import { DecodeQueue } from './decode_queue.js';
import { PictureStream } from './stream.js';

// A player says which `format` it asks for, takes its parts with take(part, queue), and paints what the queue decoded
// with paint(bitmap or null, tag): true when the picture moved.
export class CanvasPlayer {
  #stream = null;
  #queue = null;
  #onMove;
  #onEnd;
  element = document.createElement('canvas');
  pictures = 0;
  delay = null; // pictures are shown as they come
  note = '';
  sound = null;

  constructor(onMove, onEnd) {
    this.#onMove = onMove;
    this.#onEnd = onEnd;
  }

  get size() {
    return { width: this.element.width, height: this.element.height };
  }

  open(camera, view) {
    this.pictures = 0;
    const params = { cameraId: camera.id, format: this.format, timestamp: view };
    const address = url('VELM.Oculora.Stream.VideoStreaming', 'Stream', params);
    const queue = new DecodeQueue((bitmap, tag) => {
      if (!this.paint(bitmap, tag)) return;
      this.pictures += 1;
      this.#onMove();
    });
    this.#queue = queue;
    this.#stream = new PictureStream(address, (part) => this.take(part, queue), this.#onEnd);
  }

  close() {
    this.#stream?.stop();
    this.#queue?.stop();
    this.#stream = this.#queue = null;
  }

  // Gives the canvas a picture's size; the canvas is emptied when it had another.
  fit({ width, height }) {
    const canvas = this.element;
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
  }
}
