// Recordings begun from a live picture: one a camera at a time, of half a minute or until stopped.
import { announce } from '../dom.js';
import { getEvent, record, stopRecording } from './calls.js';
import { lengthNow } from './words.js';

const SECONDS = 30;
const POLL_MS = 1000;
const DONE_MS = 5000; // so long is said that it worked
const FAILURE_MS = 60000; // and why it did not

const takes = new Map(); // camera id: { state, event, message }

// Dispatches 'change' when some camera's take has changed, and every second while one is recorded.
export const takeChanges = new EventTarget();

// { state: starting|recording|stopping|done|failed, leftMs, message } or undefined.
export const takeOf = (cameraId) => takes.get(cameraId);
export const isRunning = (take) => Boolean(take) && !['done', 'failed'].includes(take.state);

// Starts one, or ends the one that runs.
export function toggleTake(camera) {
  const take = takes.get(camera.id);
  if (!isRunning(take)) run(camera);
  else if (take.eventId) stop(take);
}

async function run(camera) {
  const take = { state: 'starting', eventId: 0, leftMs: SECONDS * 1000, message: '' };
  takes.set(camera.id, take);
  changed();
  try {
    take.eventId = await record(camera.id, SECONDS);
    announce(`${camera.name}: recording.`);
    while (isRunning(take)) {
      await new Promise((resolve) => setTimeout(resolve, POLL_MS));
      follow(take, await getEvent(take.eventId));
    }
  } catch (error) {
    Object.assign(take, { state: 'failed', message: error.message });
  }
  announce(take.state === 'done' ? `${camera.name}: recorded.` : `${camera.name}: not recorded. ${take.message}`);
  setTimeout(() => forget(camera.id, take), take.state === 'done' ? DONE_MS : FAILURE_MS);
  changed();
}

function follow(take, event) {
  if (event.state === 'ready') take.state = 'done';
  else if (event.state === 'failed') Object.assign(take, { state: 'failed', message: event.reason });
  else if (event.state === 'recording' && take.state === 'starting') take.state = 'recording';
  if (event.state === 'recording') take.leftMs = Math.max(0, SECONDS * 1000 - lengthNow(event));
  changed();
}

async function stop(take) {
  take.state = 'stopping';
  changed();
  await stopRecording(take.eventId).catch(() => {}); // it ends by itself, then
}

function forget(cameraId, take) {
  if (takes.get(cameraId) === take) takes.delete(cameraId);
  changed();
}

function changed() {
  takeChanges.dispatchEvent(new Event('change'));
}
