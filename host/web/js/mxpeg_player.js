// Shows live MxPEG with its sound: key pictures whole, and of delta pictures the blocks that have changed.
import { AlawSound } from './alaw_sound.js';
import { CanvasPlayer } from './canvas_player.js';
import { isPlain, makeStrip, takeApart } from './mxpeg_picture.js';

const MOST_WAITING = 50; // pictures; who falls behind so far goes on at the next key picture
const NOTE = 'Key pictures only: this browser cannot show the changes in between.';

export class MxpegPlayer extends CanvasPlayer {
  #context = this.element.getContext('2d', { alpha: false });
  #key = null; // what arriving delta pictures refer to
  #whole = false; // whether the canvas shows what the next delta picture changes
  format = 'mxpeg';
  sound = new AlawSound();

  open(camera, view) {
    this.#key = null;
    this.#whole = false;
    this.note = '';
    super.open(camera, view);
  }

  close() {
    super.close();
    this.sound.pause();
  }

  take(part, queue) {
    const picture = takeApart(part);
    if (!picture) return this.#miss(queue);
    for (const samples of picture.sound) this.sound.play(samples);
    if (picture.frame) {
      this.#key = picture;
      if (isPlain(picture)) this.note = '';
      queue.clear(); // it replaces whatever still waits
      queue.push([part], null);
    } else if (this.#key && !isPlain(this.#key)) {
      this.note = NOTE;
    } else if (this.#key) {
      const strip = makeStrip(picture, this.#key);
      if (!strip || queue.length > MOST_WAITING) return this.#miss(queue);
      queue.push(strip.pieces, strip.runs);
    }
  }

  // Delta pictures change the one before: after a loss they wait for the next key picture.
  #miss(queue) {
    queue.clear();
    this.#key = null;
  }

  paint(bitmap, runs) {
    if (runs && !this.#whole) return false;
    this.#whole = Boolean(bitmap);
    if (!bitmap) return false;
    if (!runs) {
      this.fit(bitmap);
      this.#context.drawImage(bitmap, 0, 0);
    } else {
      for (const { from, x, y, width } of runs) this.#context.drawImage(bitmap, from, 0, width, 16, x, y, width, 16);
    }
    return true;
  }
}
