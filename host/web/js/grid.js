// The grid: a page of at most four live pictures. A browser holds six connections to a server, and the rest of the
// page needs some of them.
import { fromTemplate, setText } from './dom.js';
import { pageHash } from './routes.js';
import { showServers } from './server_line.js';
import { Tile } from './tile.js';

export const PAGE_SIZE = 4;

export const pageOf = (cameras, id) => {
  const index = cameras.findIndex((camera) => camera.id === id);
  return index < 0 ? 1 : Math.floor(index / PAGE_SIZE) + 1;
};

export class GridView {
  #tiles = new Map();
  #page;
  #shown = [false, 0];
  #onEnd;

  constructor(page, onEnd) {
    this.#page = page;
    this.#onEnd = onEnd;
    this.element = fromTemplate('grid');
    this.title = 'Cameras';
  }

  get pictures() {
    return [...this.#tiles.values()].map((tile) => tile.picture);
  }

  show(...watching) {
    this.#shown = watching;
    for (const picture of this.pictures) picture.show(...watching);
  }

  update(cameras, servers) {
    const pages = Math.max(1, Math.ceil(cameras.length / PAGE_SIZE));
    const page = Math.min(this.#page, pages);
    const shown = cameras.slice((page - 1) * PAGE_SIZE, page * PAGE_SIZE);
    this.#syncTiles(shown);
    this.#pager(page, pages);
    this.element.querySelector('.grid').dataset.count = shown.length;
    this.element.querySelector('.empty').hidden = cameras.length > 0;
    showServers(this.element.querySelector('.servers'), servers);
    setText(this.element.querySelector('.summary'), cameras.length === 1 ? '1 camera' : `${cameras.length} cameras`);
  }

  // Focuses the tile of camera `id`, or the heading.
  focus(id) {
    (this.#tiles.get(id)?.link ?? this.element.querySelector('h1')).focus();
  }

  close() {
    for (const tile of this.#tiles.values()) tile.remove();
    this.#tiles.clear();
  }

  #syncTiles(cameras) {
    const wanted = new Set(cameras.map((camera) => camera.id));
    for (const [id, tile] of this.#tiles) {
      if (wanted.has(id)) continue;
      tile.remove();
      this.#tiles.delete(id);
    }
    const list = this.element.querySelector('.grid');
    cameras.forEach((camera, index) => {
      const tile = this.#tiles.get(camera.id) ?? new Tile(camera, this.#onEnd);
      this.#tiles.set(camera.id, tile);
      if (list.children[index] !== tile.element) list.insertBefore(tile.element, list.children[index] ?? null);
      tile.update(camera);
      tile.picture.show(...this.#shown);
    });
  }

  #pager(page, pages) {
    const pager = this.element.querySelector('.pager');
    pager.hidden = pages < 2;
    setText(pager.querySelector('p'), `Page ${page} of ${pages}`);
    setLink(pager.querySelector('[rel=prev]'), page > 1 && pageHash(page - 1));
    setLink(pager.querySelector('[rel=next]'), page < pages && pageHash(page + 1));
  }
}

// A link that leads nowhere has no address: it leaves the tab order and says that it is off.
export function setLink(link, href) {
  if (href) {
    link.setAttribute('href', href);
    link.removeAttribute('aria-disabled');
  } else {
    link.removeAttribute('href');
    link.setAttribute('aria-disabled', 'true');
  }
}
