// The recordings that match a filter, newest first, as far as they were asked for; kept fresh while somebody looks.
import { listEvents } from './calls.js';
import { filterQuery, rangeOf } from './filter.js';

const POLL_MS = 5000;
const PAGE = 48;

const older = (a, b) => a.start < b.start || (a.start === b.start && a.id < b.id);

// Dispatches 'change' when events, error or pending changed.
export class EventList extends EventTarget {
  #range;
  #next = '';
  #timer = 0;
  #running = false;
  #refreshing = false;
  events = [];
  error = null; // why the last answer did not come
  loaded = false;
  pending = false; // more are being fetched
  scrolled = 0; // how far down the page was

  constructor(filter) {
    super();
    this.#range = rangeOf(filter);
  }

  get complete() {
    return this.loaded && !this.#next;
  }

  start() {
    if (this.#running) return;
    this.#running = true;
    this.#poll();
  }

  stop() {
    this.#running = false;
    clearTimeout(this.#timer);
  }

  // Fetches the events after the last one known.
  async loadMore() {
    if (this.pending || !this.#next) return;
    this.pending = true;
    this.#changed();
    try {
      const after = this.#next;
      const page = await this.#ask({ after });
      if (after === this.#next) {
        this.events = [...this.events, ...page.events];
        this.#next = page.next;
      }
      this.error = null;
    } catch (error) {
      this.error = error;
    }
    this.pending = false;
    this.#changed();
  }

  // Fetches the newest again.
  async refresh() {
    if (this.#refreshing) return;
    this.#refreshing = true;
    try {
      this.#merge(await this.#ask({}));
      this.loaded = true;
      this.error = null;
    } catch (error) {
      this.error = error;
    }
    this.#refreshing = false;
    this.#changed();
  }

  async #poll() {
    await this.refresh();
    clearTimeout(this.#timer);
    if (this.#running) this.#timer = setTimeout(() => this.#poll(), POLL_MS);
  }

  async #ask(params) {
    const { since, ...range } = this.#range;
    const page = await listEvents({ ...range, ...params, limit: PAGE });
    return { ...page, events: page.events.filter((event) => event.start + event.length >= since) };
  }

  // What the new first page covers it replaces; what is known beyond it stays, unless there may be a hole between.
  #merge({ events, next }) {
    const last = events.at(-1);
    const known = new Set(this.events.map(({ id }) => id));
    const joins = next && last && events.some(({ id }) => known.has(id));
    const rest = joins ? this.events.filter((event) => older(event, last)) : [];
    this.events = [...events, ...rest];
    if (rest.length === 0) this.#next = next;
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}

let latest = null; // { key, list }

// The list of a filter: the one left last when it had the same, so that going back finds the page as it was.
export function listOf(filter) {
  const key = filterQuery(filter);
  if (latest?.key !== key) latest = { key, list: new EventList(filter) };
  return latest.list;
}

export function forgetList() {
  latest = null;
}
