// Shows a camera's H.264 as HLS in a <video>. What a player is stands in picture.js.
//
// A <video> says little about a stream that has quietly ended, so the player watches two things itself: that the
// playlist grows and that the picture moves.
import { chooseEngine } from './hls_engines.js';
import { sessionOf } from './hls_session.js';

const WATCH_MS = 1000;
const SLICES_MISSED = 3; // so many slice lengths without a new one: the stream has ended
const HEAD_START = 1.5; // slice lengths in hand before a new stream plays ...
const LONGEST_HOLD_MS = 4000; // ... if they come so soon
const LONGEST_STILL_MS = 12000; // a picture that stood still for so long starts anew

export class HlsPlayer {
  #onMove;
  #onEnd;
  #playing = null; // what open() began: { session, newest, engine, ... }
  #video = document.createElement('video');
  #still = document.createElement('canvas'); // the last picture of a video that was taken away, under the next one
  element = document.createElement('div');
  note = '';
  sound = null;

  constructor(onMove, onEnd) {
    this.#onMove = onMove;
    this.#onEnd = onEnd;
    const video = this.#video;
    Object.assign(video, { muted: true, playsInline: true, preload: 'auto' });
    Object.assign(video, { disablePictureInPicture: true, disableRemotePlayback: true });
    for (const event of ['canplay', 'progress']) video.addEventListener(event, () => this.#playWhenReady());
    video.addEventListener('timeupdate', () => this.#moved());
    this.element.className = 'layers';
    this.element.append(this.#still, video);
  }

  get size() {
    return { width: this.#video.videoWidth, height: this.#video.videoHeight };
  }

  get pictures() {
    return this.#video.getVideoPlaybackQuality().totalVideoFrames;
  }

  get delay() {
    return this.#playing?.engine?.delay ?? null;
  }

  open(camera) {
    const times = { startedAt: 0, grewAt: 0, movedAt: 0, at: -1 };
    const playing = { session: null, engine: null, broken: false, newest: -1, timer: 0, ...times };
    this.#playing = playing;
    this.#start(playing, camera).catch((error) => this.#fail(playing, error));
  }

  close() {
    const playing = this.#playing;
    if (!playing) return;
    this.#playing = null;
    clearInterval(playing.timer);
    if (playing.engine) {
      this.#keepPicture();
      playing.engine.stop();
    }
    if (playing.broken) playing.session?.releaseBroken(playing.newest);
    else playing.session?.release();
  }

  async #start(playing, camera) {
    const startEngine = await chooseEngine();
    if (playing !== this.#playing) return;
    playing.session = sessionOf(camera.id);
    await playing.session.acquire();
    if (playing !== this.#playing) return;
    playing.startedAt = playing.grewAt = playing.movedAt = performance.now();
    playing.engine = startEngine(this.#video, playing.session.url, (error) => this.#fail(playing, error));
    playing.timer = setInterval(() => this.#watch(playing), WATCH_MS);
  }

  // A stream that has just begun has a single slice, and one that is played at once stands still before the next arrives:
  // it waits for that, but not for long. Also sets a video going again that the browser has paused.
  #playWhenReady() {
    const playing = this.#playing;
    const { buffered, currentTime, paused } = this.#video;
    if (!playing?.engine || !paused) return;
    const ahead = buffered.length > 0 ? buffered.end(buffered.length - 1) - currentTime : 0;
    if (ahead < HEAD_START * playing.engine.target && performance.now() - playing.startedAt < LONGEST_HOLD_MS) return;
    this.#video.play().catch((error) => {
      if (error.name === 'NotAllowedError') this.#fail(playing, new Error('The browser does not let the video play.'));
    });
  }

  #moved() {
    const { seeking, currentTime, videoWidth } = this.#video;
    if (!this.#playing?.engine || seeking || videoWidth === 0 || currentTime === this.#playing.at) return;
    this.#playing.at = currentTime;
    this.#playing.movedAt = performance.now();
    this.#still.hidden = true;
    this.#onMove();
  }

  #watch(playing) {
    this.#playWhenReady();
    const now = performance.now();
    const { newest, target } = playing.engine;
    if (newest !== playing.newest) Object.assign(playing, { newest, grewAt: now });
    const patience = (SLICES_MISSED * target + 1) * 1000;
    if (now - playing.grewAt > patience) this.#fail(playing, new Error('The stream has stopped.'));
    else if (now - playing.movedAt > Math.max(patience, LONGEST_STILL_MS)) this.#fail(playing, new Error('The video does not play on.'));
  }

  #fail(playing, error) {
    if (!playing || playing !== this.#playing || playing.broken) return;
    playing.broken = true;
    this.#onEnd(error);
  }

  // Leaves the last picture standing.
  #keepPicture() {
    const { width, height } = this.size;
    if (!width || this.#video.readyState < HTMLMediaElement.HAVE_CURRENT_DATA) return;
    Object.assign(this.#still, { width, height, hidden: false });
    this.#still.getContext('2d').drawImage(this.#video, 0, 0);
  }
}
