// Plays an event picture by picture in a canvas, to the frame and, when it is this host's, with any rate.
//
// The recorder paces the frames and does not number them. A part's number is counted: the first is the one asked for, and
// each further one comes as many frames later as the rate says that the recorder had when the one before was sent. Around
// a change of rate this may be off by the frames of one step; whenever playing starts anew it is exact again.
import { SESSION_ENDED } from '../api.js';
import { DecodeQueue } from '../decode_queue.js';
import { PictureStream } from '../stream.js';
import { explainNoFrames, framesUrl, newTimestamp, setRate } from './calls.js';
import { stepOf } from './rates.js';

const MOST_WAITING = 4; // pictures that came and are not decoded yet; a slow browser leaves out the rest
const BROKEN_OFF = 'Playing stopped before the end. Another window may have begun to play, or the file is damaged here.';

// Dispatches 'change' when position, playing or ended changed, 'problem' with `error` when it cannot go on.
export class FramePlayer extends EventTarget {
  #event;
  #run = null; // the stream that is open: { timestamp, next, last, rate, came }
  #wanted = -1; // a single frame asked for while another one was on its way
  #context;
  element = document.createElement('canvas');
  position = -1; // the frame shown
  rate = 1;
  ended = false;

  constructor(event) {
    super();
    this.#event = event;
    this.#context = this.element.getContext('bitmaprenderer');
  }

  get playing() {
    return this.#run !== null && !this.#run.single;
  }

  // Whether the rate can be changed; another server plays at its own.
  get hasRates() {
    return !this.#event.remote;
  }

  // How many frames there are; 0 while that is unknown.
  get count() {
    return this.#event.frames;
  }

  // What is known of the event now.
  update(event) {
    this.#event = event;
  }

  // Plays from `frame` on.
  play(frame = this.#nextToPlay) {
    this.#wanted = -1;
    this.#open(frame, -1);
  }

  pause() {
    this.#wanted = -1;
    this.#stop();
    this.#changed();
  }

  // Shows one frame and stands still. Of many asked for in a row, as by a drag, only those are fetched that can be.
  show(frame) {
    const target = this.#within(frame);
    if (this.#run?.single) this.#wanted = target;
    else this.#open(target, target);
  }

  setRate(rate) {
    if (rate === this.rate) return;
    this.rate = rate;
    if (this.playing) this.#tellRate(this.#run);
    this.#changed();
  }

  close() {
    this.#wanted = -1;
    this.#stop();
  }

  get #nextToPlay() {
    const next = this.position + 1;
    return this.ended || (this.count > 0 && next >= this.count) ? 0 : next;
  }

  #within(frame) {
    return Math.max(0, this.count > 0 ? Math.min(frame, this.count - 1) : frame);
  }

  #open(first, last) {
    this.#stop();
    this.ended = false;
    const timestamp = newTimestamp();
    const run = { timestamp, next: first, single: last >= 0, rate: this.rate, telling: false, came: 0 };
    run.queue = new DecodeQueue((bitmap, frame) => this.#paint(run, bitmap, frame));
    this.#run = run;
    const address = framesUrl(this.#event, { first, last, timestamp, rate: run.rate });
    const explain = explainNoFrames(this.#event);
    run.stream = new PictureStream(address, (part) => this.#take(run, part), (error) => this.#close(run, error), explain);
    this.#changed();
  }

  #stop() {
    this.#run?.stream.stop();
    this.#run?.queue.stop();
    this.#run = null;
  }

  #take(run, part) {
    if (run.queue.length >= MOST_WAITING) run.queue.clear();
    run.queue.push([part], run.next);
    run.next += stepOf(run.rate);
    run.came += 1;
  }

  #paint(run, bitmap, frame) {
    if (run !== this.#run) return;
    if (bitmap) {
      const { width, height } = bitmap;
      const canvas = this.element;
      if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
      this.#context.transferFromImageBitmap(bitmap);
    }
    this.position = frame;
    if (run.closed && run.queue.length === 0) this.#finish(run);
    else this.#changed();
  }

  // The last pictures may still be decoded.
  #close(run, error) {
    if (run !== this.#run) return;
    run.closed = true;
    run.error = error;
    if (run.queue.idle) this.#finish(run);
  }

  #finish(run) {
    this.#run = null;
    const wanted = this.#wanted;
    this.#wanted = -1;
    if (run.error) return this.#fail(run.error);
    if (run.came === 0) return this.#fail(new Error('The recording has no picture at this place.'));
    const reachedEnd = this.count === 0 || run.next >= this.count;
    if (!run.single && !reachedEnd) return this.#fail(new Error(BROKEN_OFF));
    this.ended = !run.single;
    this.#changed();
    if (wanted >= 0 && wanted !== this.position) this.show(wanted);
  }

  // One change at a time; the last one wins. A playback that is just beginning or ending does not take it.
  async #tellRate(run) {
    if (run.telling) return;
    run.telling = true;
    while (run === this.#run && run.rate !== this.rate) {
      const { rate } = this;
      try {
        await setRate(run.timestamp, rate);
        run.rate = rate;
      } catch (error) {
        if (run !== this.#run) return;
        if (error.code === SESSION_ENDED) return this.#fail(error);
        return this.play(this.position + 1);
      }
    }
    run.telling = false;
  }

  #fail(error) {
    this.#stop();
    this.#changed();
    this.dispatchEvent(Object.assign(new Event('problem'), { error }));
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}
