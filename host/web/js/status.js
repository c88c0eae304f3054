// What a camera's picture says: from its record and its stream to words. Pure, so that every case can be tested.
import { formatOf, typeName } from './formats.js';
import { sentence } from './sentence.js';

// Whether a stream may be opened for this camera at all.
export const isWatchable = (camera) =>
  camera.enabled && !['disabled', 'off', 'away'].includes(camera.state) && Boolean(formatOf(camera).Player);

// {tone: live|busy|problem|quiet, symbol, label, title, detail}; label is one or two words, title and detail stand on
// the picture. `phase` of the stream: stopped (nobody should watch), opening (no picture yet), live, stalled (pictures
// stopped coming), ended (over; another try follows).
export function describe(camera, phase, endReason = '') {
  const reason = sentence(camera.reason ?? '');
  if (camera.state === 'gone') return quiet('nocamera', 'Not found', 'There is no such camera', 'It may have been removed.');
  if (!camera.enabled || camera.state === 'disabled') {
    return quiet('pause', 'Disabled', 'Disabled', reason || 'This camera is switched off in the recorder’s settings.');
  }
  if (camera.state === 'off') {
    const why = reason || 'The recorder is not running.';
    return problem('power', 'Recorder off', 'No picture', `${why} The picture returns when it runs again.`);
  }
  const { unknown, opening } = formatOf(camera);
  if (unknown) return quiet('film', typeName(camera), `${typeName(camera)} camera`, unknown);
  if (phase === 'live') return { tone: 'live', symbol: '', label: 'Live', title: '', detail: '' };
  if (camera.state === 'away') {
    return problem('offline', 'Server down', `${camera.serverName} is down`, `${reason} The picture returns by itself.`.trim());
  }
  if (camera.state === 'failed') {
    return problem('nocamera', 'No picture', 'No picture', `${reason || 'The camera does not answer.'} Trying again.`);
  }
  if (phase === 'stopped') return quiet('pause', 'Paused', 'Paused', '');
  if (phase === 'stalled') return busy('Waiting', 'The picture stands still', 'Waiting for the camera.');
  if (phase === 'ended') return busy('Waiting', 'No picture just now', `${sentence(endReason)} Trying again.`.trim());
  return busy('Connecting', opening, '');
}

const busy = (label, title, detail) => ({ tone: 'busy', symbol: 'spinner', label, title, detail });
const problem = (symbol, label, title, detail) => ({ tone: 'problem', symbol, label, title, detail });
const quiet = (symbol, label, title, detail) => ({ tone: 'quiet', symbol, label, title, detail });
