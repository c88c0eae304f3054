// The large view of one camera.
import { controlsOf } from './controls.js';
import { fromTemplate, setText } from './dom.js';
import { pageOf, setLink } from './grid.js';
import { LivePicture } from './picture.js';
import { cameraHash, pageHash } from './routes.js';
import { announceStatus, showState } from './tile.js';

const GONE = { name: 'Unknown camera', type: 'mjpeg', enabled: false, state: 'gone', reason: '' };

export class SingleView {
  #id;
  #picture = null; // once the list of cameras is known
  #shown = [false, 0];
  #stage;
  #onEnd;
  title = 'Camera';

  constructor(id, onEnd) {
    this.#id = id;
    this.#onEnd = onEnd;
    this.element = fromTemplate('single');
    this.#stage = this.element.querySelector('.stage');
    const full = this.element.querySelector('.full');
    full.hidden = !document.fullscreenEnabled;
    full.addEventListener('click', () => this.#toggleFullScreen());
  }

  get pictures() {
    return this.#picture ? [this.#picture] : [];
  }

  show(...watching) {
    this.#shown = watching;
    this.#picture?.show(...watching);
  }

  update(cameras) {
    const index = cameras.findIndex((camera) => camera.id === this.#id);
    const camera = cameras[index] ?? { ...GONE, id: this.#id };
    this.title = camera.name;
    this.element.querySelector('.back').href = pageHash(pageOf(cameras, this.#id));
    setLink(this.element.querySelector('[rel=prev]'), index > 0 && cameraHash(cameras[index - 1].id));
    setLink(this.element.querySelector('[rel=next]'), index + 1 < cameras.length && index >= 0 && cameraHash(cameras[index + 1].id));
    if (this.#picture) this.#picture.update(camera);
    else this.#open(camera);
    this.#render();
  }

  focus() {
    this.element.querySelector('h1').focus();
  }

  // Keys that mean something here; true when `key` was one.
  onKey(key) {
    const go = { Escape: '.back', ArrowLeft: '[rel=prev]', ArrowRight: '[rel=next]', f: '.full', F: '.full' }[key];
    if (!go) return false;
    this.element.querySelector(go).click();
    return true;
  }

  close() {
    if (document.fullscreenElement) document.exitFullscreen();
    this.#picture?.close();
  }

  #open(camera) {
    this.#picture = new LivePicture(camera);
    this.#picture.addEventListener('facts', () => this.#render());
    this.#picture.addEventListener('status', () => {
      this.#render();
      announceStatus(this.#picture);
    });
    this.#picture.addEventListener('end', this.#onEnd);
    this.#stage.append(this.#picture.element, controlsOf(this.#picture));
    this.#picture.show(...this.#shown);
  }

  #render() {
    setText(this.element.querySelector('h1'), this.#picture.camera.name);
    showState(this.element, this.#picture);
  }

  #toggleFullScreen() {
    if (document.fullscreenElement) document.exitFullscreen();
    else this.#stage.requestFullscreen().catch(() => {}); // refused: the page stays as it is
  }
}
