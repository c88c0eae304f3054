// The recording servers of a central host: which are up, and how their cameras are. Asked for while somebody looks.
import { post } from './api.js';

const POLL_MS = 10000;
const SOONEST_MS = 3000; // between two questions, whatever happens

// Dispatches 'change' after each answer. Without one it keeps what it knew.
export class ServerList extends EventTarget {
  #timer = 0;
  #running = false;
  #asking = false;
  #askedAt = -Infinity;
  servers = [];

  start() {
    if (this.#running) return;
    this.#running = true;
    this.refresh();
  }

  stop() {
    this.#running = false;
    clearTimeout(this.#timer);
  }

  // Asks now, or as soon as it may.
  refresh() {
    if (this.#asking || !this.#running) return;
    const early = this.#askedAt + SOONEST_MS - performance.now();
    if (early > 0) this.#later(early);
    else this.#ask();
  }

  async #ask() {
    this.#asking = true;
    try {
      const { servers } = await post('VELM.Oculora.Server', 'List');
      this.servers = servers;
      if (this.#running) this.dispatchEvent(new Event('change'));
    } catch { /* what is wrong with this host shows in the list of cameras */ }
    this.#asking = false;
    this.#askedAt = performance.now();
    if (this.#running) this.#later(POLL_MS);
  }

  #later(milliseconds) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.refresh(), milliseconds);
  }
}

// The cameras with what their servers know of them. The state "away" says that a server does not answer. Pure.
export function withServers(cameras, servers) {
  const byId = new Map(servers.map((server) => [server.id, server]));
  return cameras.map((camera) => {
    const server = camera.remote && camera.enabled && byId.get(camera.server);
    if (!server) return camera;
    if (server.state === 'down') return { ...camera, state: 'away', reason: server.reason };
    const there = server.cameras.find(({ id }) => id === camera.id);
    if (!there) return camera; // just added, or removed there
    return { ...camera, state: there.state, reason: there.reason, recording: there.recording };
  });
}
