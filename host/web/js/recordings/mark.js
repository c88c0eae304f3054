// What stands beside a live picture about its recording: a word, and the reason when it does not work.
import { setText } from '../dom.js';
import { sentence } from '../sentence.js';
import { takeOf } from './takes.js';

const WORDS = { recording: 'Recording', waiting: 'Recording waits', failed: 'Not recorded' };

// `element` holds .recording and .recording-note.
export function showMark(element, camera) {
  const { mode = 'off', state = 'off', reason = '' } = camera.recording ?? {};
  const [mark, note] = ['.recording', '.recording-note'].map((name) => element.querySelector(name));
  const word = mode === 'continuous' ? (WORDS[state] ?? '') : '';
  mark.hidden = !word;
  mark.dataset.state = state;
  mark.title = sentence(reason);
  setText(mark.querySelector('.text'), word);
  const take = takeOf(camera.id);
  const failure = take?.state === 'failed' ? take.message : word && state === 'failed' ? reason : '';
  note.hidden = !failure;
  setText(note, failure && `Recording failed: ${sentence(failure)}`);
}
