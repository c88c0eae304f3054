// The HLS streams that this page has opened on the recorder. The recorder counts their users: one Open a camera, one
// Close for it, one after the other.
import { ApiError, NO_SERVER, UNREACHABLE, post, postLast, refusalToWatch, url } from './api.js';
import { readPlaylist } from './playlist.js';

const API = 'VELM.Oculora.Stream.VideoStreaming';
const OPEN_TIMEOUT_MS = 30000; // a camera that must be called first takes up to 20 s
const PLAYLIST_MS = 20000; // so long may another viewer's Open still be starting the stream
const PLAYLIST_POLL_MS = 500;
const LINGER_MS = 3000; // who leaves the grid for the large view finds the stream still running

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const sessions = new Map();

export function sessionOf(cameraId) {
  if (!sessions.has(cameraId)) sessions.set(cameraId, new HlsSession(cameraId));
  return sessions.get(cameraId);
}

// Closes everything without delay, as before logging out.
export const closeAll = () => Promise.allSettled([...sessions.values()].map((session) => session.closeNow()));

// The same for a page that goes away: nothing is waited for.
export const abandonAll = () => sessions.forEach((session) => session.abandon());

class HlsSession {
  #params;
  #users = 0;
  #opened = false; // an Open was sent that no Close has followed; perhaps it never arrived
  #usable = false; // and it was answered well
  #epoch = 0; // counts abandonments: what began before one is none of our business after it
  #queue = Promise.resolve();
  #lingering = 0;
  url; // of the playlist

  constructor(cameraId) {
    this.#params = { cameraId, format: 'hls' };
    this.url = url(API, 'Stream', this.#params);
  }

  // Resolves when there is a playlist to play. Rejects with an ApiError. Each call is matched by one release().
  acquire() {
    this.#users += 1;
    clearTimeout(this.#lingering);
    return this.#next(async () => {
      if (this.#users === 0) return; // has left while others were waited for
      if (this.#opened && !this.#usable) await this.#close();
      if (!this.#opened) await this.#open();
      await this.#untilPlayable();
    });
  }

  release() {
    this.#users -= 1;
    if (this.#users > 0) return;
    clearTimeout(this.#lingering);
    this.#lingering = setTimeout(() => this.closeNow().catch(() => {}), LINGER_MS);
  }

  // Like release(), of a stream that has broken off; `newest` is the last slice that was seen of it, -1 for none. A remux
  // that died took its count of users along: when another viewer has started a new one already, a Close would end his.
  releaseBroken(newest) {
    this.#users -= 1;
    this.#usable = false;
    const closing = this.#next(async () => {
      if (!this.#opened) return;
      const playlist = await this.#readPlaylist();
      if (newest >= 0 && (playlist?.newest ?? -1) < newest) this.#opened = false;
      await this.#close();
    });
    closing.catch(() => {}); // out of reach: the next acquire() closes first
  }

  closeNow() {
    clearTimeout(this.#lingering);
    return this.#next(() => this.#users === 0 && this.#close());
  }

  abandon() {
    clearTimeout(this.#lingering);
    if (this.#opened) postLast(API, 'Close', this.#params);
    this.#opened = this.#usable = false;
    this.#users = 0;
    this.#epoch += 1;
    this.#queue = Promise.resolve();
  }

  // Runs `step` after all that was asked for before.
  #next(step) {
    const epoch = this.#epoch;
    const done = this.#queue.then(() => epoch === this.#epoch && step());
    this.#queue = done.catch(() => {});
    return done;
  }

  async #open() {
    const epoch = this.#epoch;
    this.#opened = true;
    try {
      await post(API, 'Open', this.#params, { timeoutMs: OPEN_TIMEOUT_MS });
      if (epoch === this.#epoch) this.#usable = true;
    } catch (error) {
      if (epoch === this.#epoch && error.code !== UNREACHABLE) this.#opened = false; // refused: nothing was counted
      throw refusalToWatch(error);
    }
  }

  // Whatever the recorder answers, it is done; without an answer it stays to be done.
  async #close() {
    if (!this.#opened) return;
    const epoch = this.#epoch;
    this.#usable = false;
    try {
      await post(API, 'Close', this.#params, { keepalive: true });
    } catch (error) {
      if (error.code === UNREACHABLE) throw error;
    }
    if (epoch === this.#epoch) this.#opened = false;
  }

  // A server that is silent is asked for no Close later: it may have lost the count, and a Close too many would end what
  // others watch, while one too few is made up for when nobody fetches slices any more.
  async #readPlaylist() {
    const epoch = this.#epoch;
    try {
      return await readPlaylist(this.url);
    } catch (error) {
      if (error.code === NO_SERVER && epoch === this.#epoch) this.#opened = this.#usable = false;
      throw error;
    }
  }

  async #untilPlayable() {
    const end = performance.now() + PLAYLIST_MS;
    const epoch = this.#epoch;
    while (this.#users > 0 && epoch === this.#epoch) {
      const playlist = await this.#readPlaylist();
      if (playlist) return;
      if (performance.now() > end) throw new ApiError(403, 'The camera sends no pictures.');
      await pause(PLAYLIST_POLL_MS);
    }
  }
}
