// The button on a live picture that records it.
import { setText } from '../dom.js';
import { isWatchable } from '../status.js';
import { isRunning, takeChanges, takeOf, toggleTake } from './takes.js';
import { span } from './words.js';

// Brings `button` to life for the camera of `picture`; returns what shows its state anew.
export function recordButton(button, picture) {
  const render = () => {
    const { camera } = picture;
    const take = takeOf(camera.id);
    const running = isRunning(take);
    button.hidden = !camera.recording || !(isWatchable(camera) || running);
    button.setAttribute('aria-pressed', running);
    const words = wordsFor(take);
    button.setAttribute('aria-label', running ? `${words}, stop recording ${camera.name}` : `${words} ${camera.name}`);
    setText(button.querySelector('.text'), words);
  };
  const onChange = () => (button.isConnected ? render() : takeChanges.removeEventListener('change', onChange));
  takeChanges.addEventListener('change', onChange);
  button.addEventListener('click', () => toggleTake(picture.camera));
  return render;
}

function wordsFor(take) {
  if (take?.state === 'recording') return span(take.leftMs + 999);
  return { starting: 'Starting …', stopping: 'Stopping …', done: 'Recorded' }[take?.state] ?? 'Record';
}
