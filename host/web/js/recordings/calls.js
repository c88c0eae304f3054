// Recordings at the recorder: asking for them, and where their files and frames are.
import { ApiError, NO_SERVER, SESSION_ENDED, UNREACHABLE, post, unwrap, url } from '../api.js';
import { sentence } from '../sentence.js';

const API = 'VELM.Oculora.Event';
const STREAM = 'VELM.Oculora.Stream';
const NO_FILE = 400;
const UNKNOWN = 401;
const SAID_BETTER = new Set([100, 101, 400, 401, 402, 403, 404, 405]); // the recorder gives the reason in words
const TIMEOUT_MS = 10000;

// Rejects with an ApiError that can be shown as it is.
async function call(method, params) {
  try {
    return await post(API, method, params);
  } catch (error) {
    throw inWords(error);
  }
}

function inWords(error) {
  if (SAID_BETTER.has(error.code) && error.detail) return new ApiError(error.code, sentence(error.detail));
  if (error.code === NO_FILE) return new ApiError(NO_FILE, 'Its file is no longer there.');
  return error.code === SESSION_ENDED ? new ApiError(SESSION_ENDED, 'You may not do this.') : error;
}

const received = (event) => ({
  ...event,
  camera: event.camera || `Camera ${event.cameraId}`, // one that was removed has no name
  remote: typeof event.id === 'string', // the id of another server's recording is a text, to be handed back as it is
  receivedAt: performance.now(),
});

// { events, next, servers }: newest first, where the next page begins ('' when this was the last), and the recording
// servers whose events are missing, each { id, name, reason }.
export async function listEvents({ cameraId, from, to, after = '', limit = 50 }) {
  const { events, next = '', servers = [] } = await call('List', { cameraId, from, to, after, limit });
  return { events: events.map(received), next, servers };
}

export const getEvent = async (eventId) => received(await call('Get', { eventId }));
export const record = async (cameraId, seconds) => (await call('Record', { cameraId, seconds })).eventId;
export const stopRecording = (eventId) => call('Stop', { eventId });
export const keepEvent = (eventId, kept) => call('Keep', { eventId, kept });
export const removeEvent = (eventId) => call('Remove', { eventId });
export const setRate = (timestamp, rate) => call('SetRate', { timestamp, rate });

const named = (event) => ({ eventId: event.id, recEvtType: event.type });
export const thumbnailUrl = (event) => url(API, 'Thumbnail', { eventId: event.id });
export const fileUrl = (event) => url(STREAM, 'EventStream', named(event));

// Frames from `first` to `last` (-1: the end), at a rate that setRate(timestamp, ...) changes.
export const framesUrl = (event, { first, last, timestamp, rate }) =>
  url(STREAM, 'EventMultipartFetch', {
    ...named(event), framestart: first, framestop: last, timestamp, playrate: rate, changerate: true, checkpgid: 1,
  });

// Names one playback: 53 random bits, at least 1.
export function newTimestamp() {
  const [high, low] = crypto.getRandomValues(new Uint32Array(2));
  return (high >>> 11) * 2 ** 32 + low || 1;
}

// What tells why frames of an event are refused, from an answer that has none.
export const explainNoFrames = (event) => async (response) => {
  const type = response.headers.get('content-type') ?? '';
  if (!type.includes('json')) throw new Error('Its pictures cannot be read: the file is damaged or of a kind not known here.');
  throw refusalIn(await response.json(), event);
};

function refusalIn(answer, event) {
  try {
    unwrap(answer);
  } catch (error) {
    if (event.remote && error.code === UNKNOWN) return new ApiError(NO_SERVER, 'Its recording server does not answer.');
    return inWords(error);
  }
  return new ApiError(117);
}

// Why the file is refused; null when it is there.
export async function whyNoFile(event) {
  try {
    const headers = { Range: 'bytes=0-0' };
    const response = await fetch(fileUrl(event), { headers, cache: 'no-store', signal: AbortSignal.timeout(TIMEOUT_MS) });
    const type = response.headers.get('content-type') ?? '';
    return type.includes('json') ? refusalIn(await response.json(), event) : null;
  } catch {
    return new ApiError(UNREACHABLE);
  }
}
