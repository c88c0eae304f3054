// One camera's live picture: its player, the retries, and the words on it while there is nothing to see.
//
// A player shows one kind of stream in an element of its own: new Player(onMove, onEnd) with
//   element            what moves
//   size, pictures     { width, height } of the picture; how many were shown since open()
//   delay              seconds behind the camera, null where that is unknown
//   note               what it leaves out of the stream, '' when nothing; what it shows may be seconds apart then
//   sound              null, or { came: whether there is any, on, turn(on) }
//   open(camera, view) starts; `view` is the view instance it belongs to
//   close()            ends; the last picture stays, and nothing is called back any more
// onMove() is called whenever the picture moves, onEnd(error or null) once when a stream has ended by itself; after
// an error that is `final` the camera is shown in another format.
import { whyNoVideo } from './choices.js';
import { fromTemplate, setText } from './dom.js';
import { formatOf } from './formats.js';
import { describe, isWatchable } from './status.js';

const STALL_MS = 5000;
const SPARSE_STALL_MS = 15000; // of pictures that may be seconds apart
const HEALTHY_MS = 5000; // a picture that moved for so long starts with a quick retry again
const RETRY_MS = [1000, 2000, 4000, 8000, 15000];
const RATE_TICKS = 5;
const clock = new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit', second: '2-digit' });

// Dispatches 'status' when the words change, 'facts' about once a second while live, 'end' when a stream has ended.
export class LivePicture extends EventTarget {
  #format = null;
  #player = null; // null when there is none for this camera
  #open = false;
  #watching = false;
  #view = 0;
  #phase = 'stopped';
  #endReason = '';
  #tries = 0;
  #firstMoveAt = 0; // of the stream that is open
  #lastMoveAt = 0;
  #timer = 0; // the next retry
  #ticker = 0; // once a second: clock, rate, stall
  #counts = []; // [when, how many pictures] of the last ticks

  constructor(camera) {
    super();
    this.element = fromTemplate('picture');
    this.facts = ''; // "1280 × 720 · 25 fps" while live
    this.#take(camera);
    this.#render();
  }

  get live() {
    return this.#phase === 'live';
  }

  // What is not shown, and why; '' when all is.
  get note() {
    return this.#player?.note ? `${this.#player.note} ${whyNoVideo(this.camera.id)}`.trim() : '';
  }

  get sound() {
    return this.#player?.sound;
  }

  // Whether only one window of a session may show it.
  get exclusive() {
    return Boolean(this.#format.exclusive);
  }

  // Streams while somebody is `watching`; what only one window may show needs its view instance `view` as well.
  show(watching, view) {
    const before = this.#turn;
    this.#watching = watching;
    this.#view = view;
    if (this.#turn === before) return;
    this.#close();
    this.#tries = 0;
    this.#phase = 'stopped';
    this.#openIfPossible();
    this.#render();
  }

  update(camera) {
    const before = this.camera;
    this.#take(camera);
    if (!isWatchable(camera)) {
      if (camera.state === 'away' && this.live) return; // it does come: believe the eye
      this.#close();
      this.#phase = 'stopped';
      this.#tries = 0;
    } else if (!this.#open) {
      const better = before.state !== camera.state && camera.state !== 'failed';
      if (!isWatchable(before) || this.#phase === 'stopped' || (better && this.#phase === 'ended')) this.#openIfPossible();
    }
    this.#render();
  }

  close() {
    this.show(false, 0);
  }

  get #turn() {
    return this.exclusive ? this.#view : Number(this.#watching);
  }

  // A camera whose type was changed gets another player.
  #take(camera) {
    this.camera = camera;
    if (formatOf(camera) === this.#format) return;
    this.#close();
    this.#format = formatOf(camera);
    const { Player } = this.#format;
    this.#player = Player ? new Player(() => this.#moved(), (error) => this.#ended(error)) : null;
    this.#lastMoveAt = 0;
    this.#phase = 'stopped';
    this.#screen.replaceChildren(...(this.#player ? [this.#player.element] : []));
  }

  get #screen() {
    return this.element.querySelector('.screen');
  }

  #openIfPossible() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    if (!this.#turn || this.#open || !isWatchable(this.camera)) return;
    if (this.#phase !== 'ended') this.#phase = 'opening';
    this.#firstMoveAt = 0;
    this.#counts = [];
    this.#ticker = setInterval(() => this.#tick(), 1000);
    this.#open = true;
    this.#player.open(this.camera, this.#view);
  }

  #close() {
    clearTimeout(this.#timer);
    clearInterval(this.#ticker);
    this.#timer = this.#ticker = 0;
    if (this.#open) this.#player.close();
    this.#open = false;
    this.facts = '';
  }

  #moved() {
    this.#lastMoveAt = performance.now();
    this.#firstMoveAt ||= this.#lastMoveAt;
    if (this.#phase === 'live') return;
    this.#phase = 'live';
    this.#render();
    this.#tick();
  }

  #tick() {
    if (this.#phase !== 'live') return;
    if (performance.now() - this.#lastMoveAt > (this.#player.note ? SPARSE_STALL_MS : STALL_MS)) {
      this.#phase = 'stalled';
      this.#counts = [];
      this.#render();
      return;
    }
    const rate = this.#takeRate();
    const { size, delay } = this.#player;
    const facts = [`${size.width} × ${size.height}`];
    if (rate > 0) facts.push(`${rate < 0.95 ? rate.toFixed(1) : Math.round(rate)} fps`);
    if (delay !== null) facts.push(`${Math.round(delay)} s behind`);
    this.facts = facts.join(' · ');
    setText(this.element.querySelector('time'), clock.format(Date.now() - (delay ?? 0) * 1000));
    this.dispatchEvent(new Event('facts'));
  }

  // Pictures a second, over so long that it can be read; 0 before it is known.
  #takeRate() {
    const now = [performance.now(), this.#player.pictures];
    this.#counts = [...this.#counts.slice(-RATE_TICKS), now];
    const [first] = this.#counts;
    return first === now ? 0 : ((now[1] - first[1]) * 1000) / (now[0] - first[0]);
  }

  #ended(error) {
    const healthy = this.#firstMoveAt > 0 && this.#lastMoveAt > this.#firstMoveAt + HEALTHY_MS;
    this.#close();
    if (error?.final) {
      this.#format.giveUp(this.camera.id, error.message);
      return;
    }
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
    this.#screen.setAttribute('aria-label', `Live picture of ${this.camera.name}`);
    this.#screen.toggleAttribute('data-blank', this.#lastMoveAt === 0);
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
