// A camera in the grid: its picture, name and state; the whole tile leads to the large view.
import { controlsOf } from './controls.js';
import { announce, fromTemplate, setText } from './dom.js';
import { LivePicture } from './picture.js';
import { showMark } from './recordings/mark.js';
import { cameraHash } from './routes.js';
import { showServerName } from './server_line.js';

export class Tile {
  constructor(camera, onEnd) {
    this.picture = new LivePicture(camera);
    this.element = fromTemplate('tile');
    this.element.prepend(this.picture.element);
    this.element.append(controlsOf(this.picture));
    this.link = this.element.querySelector('a');
    const state = this.element.querySelector('.state');
    state.id = `state-${camera.id}`;
    this.link.href = cameraHash(camera.id);
    this.link.setAttribute('aria-describedby', state.id);
    this.picture.addEventListener('facts', () => this.#render());
    this.picture.addEventListener('status', () => {
      this.#render();
      announceStatus(this.picture);
    });
    this.picture.addEventListener('end', onEnd);
    this.#render();
  }

  update(camera) {
    this.picture.update(camera);
    this.#render();
  }

  remove() {
    this.picture.close();
    this.element.remove();
  }

  #render() {
    setText(this.link, this.picture.camera.name);
    showState(this.element, this.picture);
  }
}

// The words beside a picture: what it is like, or what is wrong; and what of it is not shown.
export function showState(element, picture) {
  const { tone, label } = picture.status;
  const [state, note] = ['.state', '.note'].map((name) => element.querySelector(name));
  state.dataset.tone = tone;
  setText(state, picture.facts && tone === 'live' ? `${label} · ${picture.facts}` : label);
  note.hidden = !picture.note || tone !== 'live';
  setText(note, picture.note);
  showServerName(element.querySelector('.server'), picture.camera.serverName);
  showMark(element, picture.camera);
}

// Says what people who see the page see: problems with their reason, and the return of the picture.
export function announceStatus(picture) {
  const { tone, label, detail } = picture.status;
  if (tone === 'problem') announce(`${picture.camera.name}: ${label}. ${detail}`);
  else if (tone === 'live') announce(`${picture.camera.name}: live.`);
}
