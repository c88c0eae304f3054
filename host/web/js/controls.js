// The buttons on a live picture: record, sound, video or preview. Each is there only when it does something.
import { wantPreview, wantsPreview } from './choices.js';
import { fromTemplate, setText } from './dom.js';
import { hasChoice } from './formats.js';
import { recordButton } from './recordings/record_button.js';
import { isWatchable } from './status.js';

export function controlsOf(picture) {
  const element = fromTemplate('controls');
  const [sound, preview] = ['.sound', '.preview'].map((name) => element.querySelector(name));
  const renderRecord = recordButton(element.querySelector('.record'), picture);
  const render = () => {
    renderRecord();
    const { camera } = picture;
    for (const of of element.querySelectorAll('.of')) setText(of, ` of ${camera.name}`);
    sound.hidden = !picture.sound?.came;
    sound.setAttribute('aria-pressed', Boolean(picture.sound?.on));
    preview.hidden = !hasChoice(camera) || !isWatchable(camera);
    preview.setAttribute('aria-pressed', wantsPreview(camera.id));
  };
  sound.addEventListener('click', () => {
    picture.sound.turn(!picture.sound.on);
    render();
  });
  preview.addEventListener('click', () => {
    wantPreview(picture.camera.id, !wantsPreview(picture.camera.id));
    render();
  });
  for (const event of ['facts', 'status']) picture.addEventListener(event, render);
  render();
  return element;
}
