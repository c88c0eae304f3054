// The list of cameras, kept fresh while somebody looks: polled, paused when hidden, asked at once when needed. Cameras of
// recording servers are cameras like all others; how they are, their servers tell.
import { post } from './api.js';
import { ServerList, withServers } from './servers.js';

const POLL_MS = 3000;

export class CameraList extends EventTarget {
  #timer = 0;
  #running = false;
  #pending = null;
  #own = []; // as this host knows them
  #servers = new ServerList();
  loaded = false;

  constructor() {
    super();
    this.#servers.addEventListener('change', () => this.dispatchEvent(new Event('servers')));
  }

  get cameras() {
    return withServers(this.#own, this.servers);
  }

  // Empty where there are no cameras of others.
  get servers() {
    return this.#hasRemote ? this.#servers.servers : [];
  }

  get #hasRemote() {
    return this.#own.some(({ remote }) => remote);
  }

  start() {
    if (this.#running) return;
    this.#running = true;
    this.refresh();
  }

  stop() {
    this.#running = false;
    clearTimeout(this.#timer);
    this.#servers.stop();
  }

  // What a stream that has ended asks for: how its camera's server is.
  refreshServers() {
    this.#servers.refresh();
  }

  // Asks now; callers that come while an answer is under way share it. Dispatches 'change' or 'problem' (with .error);
  // 'servers' when their servers have told about cameras.
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
      this.#own = cameras;
      this.loaded = true;
      if (!this.#running) return;
      if (this.#hasRemote) this.#servers.start();
      else this.#servers.stop();
      this.dispatchEvent(new Event('change'));
    } catch (error) {
      if (this.#running) this.dispatchEvent(Object.assign(new Event('problem'), { error }));
    }
  }
}
