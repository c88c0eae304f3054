// Shows live MJPEG: a camera's own, or the preview that the recorder makes of another camera's key frames.
import { CanvasPlayer } from './canvas_player.js';

export class MjpegPlayer extends CanvasPlayer {
  #context = this.element.getContext('bitmaprenderer');
  format = 'mjpeg';

  // Only the newest is worth decoding.
  take(part, queue) {
    queue.clear();
    queue.push([part]);
  }

  paint(bitmap) {
    if (!bitmap) return false; // a broken picture is left out
    this.fit(bitmap);
    this.#context.transferFromImageBitmap(bitmap);
    return true;
  }
}

export class PreviewPlayer extends MjpegPlayer {
  note = 'Preview: key frames only.';
}
