// One camera's live picture: the stream, its retries, and the words on it while there is nothing to see.
import { fromTemplate, setText } from './dom.js';
import { formatOf } from './formats.js';
import { describe, isWatchable } from './status.js';
import { LiveStream } from './stream.js';

const STALL_MS = 5000;
const HEALTHY_MS = 5000; // a stream that lived so long starts with a quick retry again
const RETRY_MS = [1000, 2000, 4000, 8000, 15000];
const clock = new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit', second: '2-digit' });

// Dispatches 'status' when the words change, 'facts' about once a second while live, 'end' when a stream has ended.
export class LivePicture extends EventTarget {
  #canvas;
  #context;
  #stream = null;
  #view = 0; // the instance to stream for, 0: not at all
  #phase = 'stopped';
  #endReason = '';
  #tries = 0;
  #openedAt = 0;
  #lastPictureAt = 0;
  #timer = 0; // the next retry
  #ticker = 0; // once a second: clock, rate, stall
  #countedAt = 0; // when the rate was last taken, at how many pictures, and what it was
  #counted = 0;
  #rate = 0;

  constructor(camera) {
    super();
    this.camera = camera;
    this.element = fromTemplate('picture');
    this.#canvas = this.element.querySelector('canvas');
    this.#context = this.#canvas.getContext('bitmaprenderer');
    this.facts = ''; // "1280 × 720 · 25 fps" while live
    this.#render();
  }

  get live() {
    return this.#phase === 'live';
  }

  // Streams for view instance `view`, or not at all when it is 0.
  show(view) {
    if (view === this.#view) return;
    this.#close();
    this.#view = view;
    this.#tries = 0;
    this.#phase = 'stopped';
    this.#openIfPossible();
    this.#render();
  }

  update(camera) {
    const before = this.camera;
    this.camera = camera;
    if (!isWatchable(camera)) {
      this.#close();
      this.#phase = 'stopped';
    } else if (!this.#stream) {
      const better = before.state !== camera.state && camera.state !== 'failed';
      if (!isWatchable(before) || (better && this.#phase === 'ended')) this.#openIfPossible();
    }
    this.#render();
  }

  close() {
    this.show(0);
  }

  #openIfPossible() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    if (!this.#view || this.#stream || !isWatchable(this.camera)) return;
    if (this.#phase !== 'ended') this.#phase = 'opening';
    this.#openedAt = performance.now();
    this.#rate = 0;
    this.#ticker = setInterval(() => this.#tick(), 1000);
    const { url } = formatOf(this.camera, this.#view);
    this.#stream = new LiveStream(url, (bitmap) => this.#paint(bitmap), (error) => this.#ended(error));
  }

  #close() {
    clearTimeout(this.#timer);
    clearInterval(this.#ticker);
    this.#timer = this.#ticker = 0;
    this.#stream?.stop();
    this.#stream = null;
    this.facts = '';
  }

  #paint(bitmap) {
    const { width, height } = bitmap;
    if (this.#canvas.width !== width || this.#canvas.height !== height) Object.assign(this.#canvas, { width, height });
    this.#context.transferFromImageBitmap(bitmap);
    this.#lastPictureAt = performance.now();
    if (this.#phase === 'live') return;
    this.#phase = 'live';
    this.#render();
    this.#tick();
  }

  #tick() {
    if (this.#phase !== 'live') return;
    if (performance.now() - this.#lastPictureAt > STALL_MS) {
      this.#phase = 'stalled';
      this.#render();
      return;
    }
    this.#takeRate();
    const { width, height } = this.#canvas;
    this.facts = `${width} × ${height}${this.#rate ? ` · ${Math.max(1, Math.round(this.#rate))} fps` : ''}`;
    setText(this.element.querySelector('time'), clock.format(new Date()));
    this.dispatchEvent(new Event('facts'));
  }

  // Pictures a second, smoothed so that it can be read.
  #takeRate() {
    const now = performance.now();
    const first = this.#stream.pictures === 1;
    if (!first) {
      const rate = ((this.#stream.pictures - this.#counted) * 1000) / (now - this.#countedAt);
      this.#rate = this.#rate ? 0.6 * this.#rate + 0.4 * rate : rate;
    }
    this.#countedAt = now;
    this.#counted = this.#stream.pictures;
  }

  #ended(error) {
    const healthy = this.#lastPictureAt > this.#openedAt + HEALTHY_MS;
    this.#close();
    this.#phase = 'ended';
    this.#endReason = error?.message ?? '';
    this.#tries = healthy ? 0 : this.#tries;
    const delay = RETRY_MS[Math.min(this.#tries, RETRY_MS.length - 1)];
    this.#tries += 1;
    this.#timer = setTimeout(() => this.#openIfPossible(), delay);
    this.#render();
    this.dispatchEvent(Object.assign(new Event('end'), { error }));
  }

  #render() {
    const status = describe(this.camera, this.#phase, this.#endReason);
    const find = (selector) => this.element.querySelector(selector);
    this.element.dataset.tone = status.tone;
    this.#canvas.setAttribute('aria-label', `Live picture of ${this.camera.name}`);
    this.#canvas.hidden = this.#lastPictureAt === 0;
    find('.badge').hidden = status.tone !== 'live';
    find('.overlay').hidden = status.tone === 'live';
    find('.symbol').className = `symbol icon-${status.symbol}`;
    setText(find('.overlay-title'), status.title);
    setText(find('.overlay-detail'), status.detail);
    const changed = !this.status || ['tone', 'label', 'detail'].some((key) => this.status[key] !== status[key]);
    this.status = status;
    if (changed) this.dispatchEvent(new Event('status'));
  }
}
