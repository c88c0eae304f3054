// The recordings that match a filter, newest first, as far as they were asked for; kept fresh while somebody looks.
import { listEvents } from './calls.js';
import { filterQuery, rangeOf } from './filter.js';

const POLL_MS = 5000;
const PAGE = 48;

// Dispatches 'change' when events, error or pending changed.
export class EventList extends EventTarget {
  #range;
  #next = '';
  #timer = 0;
  #running = false;
  #refreshing = null;
  events = [];
  missing = []; // servers whose events are not among them: { id, name, reason }
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
        this.missing = united(page.servers, this.missing);
      }
      this.error = null;
    } catch (error) {
      this.error = error;
    }
    this.pending = false;
    this.#changed();
  }

  // Fetches the newest again; who asks meanwhile shares the answer.
  refresh() {
    this.#refreshing ??= this.#refresh().finally(() => (this.#refreshing = null));
    return this.#refreshing;
  }

  async #refresh() {
    try {
      const page = await this.#ask({});
      if (this.missing.some(({ id }) => !page.servers.some((server) => server.id === id))) await this.#refill(page);
      this.#merge(page);
      this.loaded = true;
      this.error = null;
    } catch (error) {
      this.error = error;
    }
    this.#changed();
  }

  // A server is back whose events were missing on every page: all of them are asked for again.
  async #refill(page) {
    const oldest = this.events.at(-1)?.start ?? Infinity;
    while (page.next && !(page.events.at(-1)?.start <= oldest)) {
      const more = await this.#ask({ after: page.next });
      page.events.push(...more.events);
      page.servers = united(more.servers, page.servers);
      page.next = more.next;
    }
    this.events = [];
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
  #merge({ events, next, servers }) {
    const last = events.at(-1);
    const covered = new Set(events.map(({ id }) => id));
    const joins = next && last && this.events.some(({ id }) => covered.has(id));
    const rest = joins ? this.events.filter(({ id, start }) => start <= last.start && !covered.has(id)) : [];
    this.events = [...events, ...rest];
    this.missing = servers;
    if (rest.length === 0) this.#next = next;
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}

// Two lists of servers as one; what the first says of a server counts.
const united = (first, second) => [...new Map([...second, ...first].map((server) => [server.id, server])).values()];

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
