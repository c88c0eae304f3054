// The list of cameras, kept fresh while somebody looks: polled, paused when hidden, asked at once when needed.
import { post } from './api.js';

const POLL_MS = 3000;

export class CameraList extends EventTarget {
  #timer = 0;
  #running = false;
  #pending = null;
  cameras = [];
  loaded = false;

  start() {
    if (this.#running) return;
    this.#running = true;
    this.refresh();
  }

  stop() {
    this.#running = false;
    clearTimeout(this.#timer);
  }

  byId(id) {
    return this.cameras.find((camera) => camera.id === id);
  }

  // Asks now; callers that come while an answer is under way share it. Dispatches 'change' or 'problem' (with .error).
  refresh() {
    this.#pending ??= this.#load().finally(() => {
      this.#pending = null;
      clearTimeout(this.#timer);
      if (this.#running) this.#timer = setTimeout(() => this.refresh(), POLL_MS);
    });
    return this.#pending;
  }

  async #load() {
    try {
      const { cameras } = await post('VELM.Oculora.Camera', 'List');
      this.cameras = cameras;
      this.loaded = true;
      if (this.#running) this.dispatchEvent(new Event('change'));
    } catch (error) {
      if (this.#running) this.dispatchEvent(Object.assign(new Event('problem'), { error }));
    }
  }
}
