// What turns a playlist into moving pictures in a <video>: hls.js where scripts may feed it, else the browser itself.
//
// An engine has `newest` (number of the last slice known, -1 before), `target` (seconds of the longest slice), `delay`
// (seconds behind the recorder, null when unknown) and stop(). It calls onFailure(error) when it cannot go on.
import { ApiError, NO_SERVER, UNREACHABLE } from './api.js';
import { readPlaylist } from './playlist.js';

const H264 = 'video/mp4; codecs="avc1.42E01E"';
const PLAYLIST_TYPE = 'application/vnd.apple.mpegurl';
const POLL_MS = 2000;
const SYNC = 3; // how many slices behind the newest it plays ...
const MAX_LAG = 5; // ... and when it jumps there

// No other try will do better.
export class Unplayable extends Error {
  final = true;
}

// Resolves to a function (video, url, onFailure) that starts one; throws Unplayable when there is none.
export async function chooseEngine() {
  const scripted = (globalThis.ManagedMediaSource ?? globalThis.MediaSource)?.isTypeSupported(H264);
  if (scripted) {
    const Hls = await loadHls();
    return (...args) => new ScriptedEngine(Hls, ...args);
  }
  if (document.createElement('video').canPlayType(PLAYLIST_TYPE)) return (...args) => new NativeEngine(...args);
  throw new Unplayable('This browser cannot play H.264 streams.');
}

// The library is large and only H.264 needs it.
async function loadHls() {
  try {
    return (await import('../vendor/hls.mjs')).default;
  } catch {
    throw new Unplayable('The player for H.264 (hls.js) is not installed on the recorder.');
  }
}

// Entries of the playlist name the session of whoever opened the stream, and the host as that viewer reached it; each
// viewer uses his own: his cookie, and where this page comes from.
function ownAddress(address) {
  const { pathname, search } = new URL(address, location);
  return pathname + search.replace(/([?&])_sid=[^&]*&?/, '$1');
}

class ScriptedEngine {
  #hls;
  newest = -1;
  target = 2;

  constructor(Hls, video, url, onFailure) {
    this.#hls = new Hls({
      enableWorker: false, // a worker from a blob is not allowed here, and copying packets takes next to no time
      liveSyncDurationCount: SYNC,
      liveMaxLatencyDurationCount: MAX_LAG,
      maxLiveSyncPlaybackRate: 1.1,
      backBufferLength: 10,
      xhrSetup: (request, address) => request.open('GET', ownAddress(address)),
    });
    this.#hls.on(Hls.Events.LEVEL_UPDATED, (_, { details }) => {
      this.newest = details.endSN;
      this.target = details.targetduration;
    });
    this.#hls.on(Hls.Events.ERROR, (_, data) => data.fatal && onFailure(explain(Hls, data)));
    this.#hls.loadSource(url);
    this.#hls.attachMedia(video);
  }

  get delay() {
    return this.#hls.latency || null;
  }

  stop() {
    this.#hls.destroy();
  }
}

function explain(Hls, { type, details, response }) {
  const { BUFFER_ADD_CODEC_ERROR, BUFFER_INCOMPATIBLE_CODECS_ERROR, MANIFEST_INCOMPATIBLE_CODECS_ERROR } = Hls.ErrorDetails;
  if ([BUFFER_ADD_CODEC_ERROR, BUFFER_INCOMPATIBLE_CODECS_ERROR, MANIFEST_INCOMPATIBLE_CODECS_ERROR].includes(details)) {
    return new Unplayable('This browser cannot play this camera’s kind of H.264.');
  }
  if (type === Hls.ErrorTypes.NETWORK_ERROR && !response?.code) return new ApiError(UNREACHABLE);
  if (response?.code === NO_SERVER) return new ApiError(NO_SERVER);
  return new Error('The stream has broken off.');
}

class NativeEngine {
  #video;
  #poll;
  #stopped = new AbortController();
  newest = -1;
  target = 2;

  constructor(video, url, onFailure) {
    this.#video = video;
    const { signal } = this.#stopped;
    video.addEventListener('error', () => onFailure(new Error('The stream has broken off.')), { signal });
    video.src = url;
    this.#poll = setInterval(() => this.#look(url), POLL_MS);
    this.#look(url);
  }

  get delay() {
    const { seekable, currentTime } = this.#video;
    return seekable.length > 0 ? Math.max(0, seekable.end(seekable.length - 1) - currentTime) : null;
  }

  stop() {
    clearInterval(this.#poll);
    this.#stopped.abort();
    this.#video.removeAttribute('src');
    this.#video.load();
  }

  async #look(url) {
    const playlist = await readPlaylist(url).catch(() => null);
    if (!playlist || this.#stopped.signal.aborted) return;
    Object.assign(this, playlist);
    if (this.delay > MAX_LAG * this.target) this.#video.currentTime += this.delay - SYNC * this.target;
  }
}
