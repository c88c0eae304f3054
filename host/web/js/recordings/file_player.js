// Plays an event's file in a <video> with the browser's own controls.
import { fileUrl, whyNoFile } from './calls.js';

const CODECS = { h264: 'avc1.42E01E', mpeg4: 'mp4v.20.9' };

// Whether this browser plays such files, as far as it can tell beforehand.
export function canPlayFile(event) {
  const codec = CODECS[event.videoType];
  return event.file === 'mp4' && Boolean(codec) &&
    document.createElement('video').canPlayType(`video/mp4; codecs="${codec}"`) !== '';
}

// Dispatches 'change' when it has begun or time has passed, 'problem' with `error` (and `error.unplayable` when it is the
// browser that cannot) when it cannot go on.
export class FilePlayer extends EventTarget {
  #closed = false;
  element = document.createElement('video');

  constructor(event) {
    super();
    const video = this.element;
    Object.assign(video, { controls: true, muted: true, playsInline: true, preload: 'auto' });
    for (const name of ['loadeddata', 'timeupdate', 'seeked']) video.addEventListener(name, () => this.dispatchEvent(new Event('change')));
    video.addEventListener('error', () => this.#explain(event));
  }

  // Plays the file from `seconds` on.
  open(event, seconds) {
    this.element.src = fileUrl(event) + (seconds > 0 ? `#t=${seconds.toFixed(3)}` : '');
    this.element.play().catch(() => {}); // it stands still then, and its own button starts it
  }

  get started() {
    return this.element.readyState >= HTMLMediaElement.HAVE_CURRENT_DATA;
  }

  get seconds() {
    return this.element.currentTime;
  }

  close() {
    this.#closed = true;
    this.element.removeAttribute('src');
    this.element.load();
  }

  async #explain(event) {
    if (this.#closed) return;
    const refusal = await whyNoFile(event);
    if (this.#closed) return;
    const error = refusal ?? Object.assign(new Error('This browser cannot play this file.'), { unplayable: true });
    this.dispatchEvent(Object.assign(new Event('problem'), { error }));
  }
}
