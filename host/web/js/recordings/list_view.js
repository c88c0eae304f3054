// The recordings: a list grouped by day, newest first, with a filter; it grows as one scrolls down.
import { SESSION_ENDED } from '../api.js';
import { announce, fromTemplate, setText } from '../dom.js';
import { recordingsHash } from '../routes.js';
import { sentence } from '../sentence.js';
import { serverNamesOf } from '../server_line.js';
import { EventCard } from './card.js';
import { listOf } from './event_list.js';
import { FilterForm } from './filter_form.js';
import { dayName, dayOf } from './words.js';

export class ListView {
  title = 'Recordings';
  #filter;
  #list;
  #form;
  #cards = new Map(); // event id, as text: EventCard
  #serverNames = new Map(); // camera id: name
  #days = new Map(); // day: section
  #seen = false;
  #ticker;
  #watcher;
  #onRender = () => this.#render();
  #onTrouble;

  constructor(filter, onTrouble) {
    this.#onTrouble = onTrouble;
    this.element = fromTemplate('recordings');
    this.#form = new FilterForm(this.element.querySelector('form'), (chosen) => {
      location.hash = recordingsHash(chosen);
    });
    const more = this.element.querySelector('.more button');
    more.addEventListener('click', () => this.#list.loadMore());
    for (const again of this.element.querySelectorAll('.again')) again.addEventListener('click', () => this.#tryAgain(again));
    this.#watcher = new IntersectionObserver(([{ isIntersecting }]) => isIntersecting && this.#loadAhead(), { rootMargin: '600px' });
    this.#watcher.observe(this.element.querySelector('.more'));
    this.#ticker = setInterval(() => this.#tick(), 1000);
    this.#use(filter);
  }

  // Takes the address when it is one of this view.
  follow({ name, filter }) {
    if (name !== 'recordings') return false;
    this.#use(filter);
    return true;
  }

  show(seen) {
    this.#seen = seen;
    if (seen) this.#list.start();
    else this.#list.stop();
  }

  update(cameras) {
    this.#form.update(cameras);
    const before = this.#serverNames;
    this.#serverNames = serverNamesOf(cameras);
    if (cameras.some(({ id }) => this.#serverNames.get(id) !== before.get(id))) this.#renderCards();
  }

  // Focuses the card of event `id`, where the page was left, or the heading.
  focus(id) {
    const card = this.#cards.get(id);
    if (!card) {
      scrollTo(0, 0);
      this.element.querySelector('h1').focus();
      return;
    }
    scrollTo(0, this.#list.scrolled);
    card.link.focus({ preventScroll: true });
  }

  close() {
    this.#list.scrolled = scrollY;
    this.#leave();
    this.#watcher.disconnect();
    clearInterval(this.#ticker);
  }

  #leave() {
    this.#list?.removeEventListener('change', this.#onRender);
    this.#list?.stop();
  }

  #use(filter) {
    this.#leave();
    this.#filter = filter;
    this.#list = listOf(filter);
    this.#list.addEventListener('change', this.#onRender);
    this.#form.show(filter);
    if (this.#seen) this.#list.start();
    this.#render();
  }

  #loadAhead() {
    if (!this.#list.error) this.#list.loadMore();
  }

  #tick() {
    for (const event of this.#list.events) if (event.state === 'recording') this.#cards.get(String(event.id))?.tick();
  }

  async #tryAgain(button) {
    setText(button, 'Trying …');
    await this.#list.refresh();
    setText(button, 'Try again');
  }

  #render() {
    const { error } = this.#list;
    if (error?.code === SESSION_ENDED) this.#onTrouble();
    this.#renderMissing();
    this.#renderCards();
    this.#renderEnd();
  }

  // Whose recordings are not in the list, and why.
  #renderMissing() {
    const { missing } = this.#list;
    const block = this.element.querySelector('.missing');
    block.hidden = missing.length === 0;
    const lines = missing.map(({ name, reason }) => sentence(`Recordings of ${name} are missing: ${reason}`));
    setText(block.querySelector('p'), lines.join('\n'));
  }

  #renderCards() {
    const { events } = this.#list;
    const groups = groupByDay(events);
    this.#keepOnly(this.#days, groups);
    this.#keepOnly(this.#cards, new Set(events.map(({ id }) => String(id))));
    const parent = this.element.querySelector('.days');
    let at = 0;
    for (const [day, ofDay] of groups) {
      const section = this.#sectionOf(day);
      if (parent.children[at] !== section) parent.insertBefore(section, parent.children[at] ?? null);
      setText(section.querySelector('h2'), dayName(day));
      this.#fill(section.querySelector('ul'), ofDay);
      at += 1;
    }
  }

  #fill(list, events) {
    events.forEach((event, index) => {
      const card = this.#cards.get(String(event.id)) ?? new EventCard();
      this.#cards.set(String(event.id), card);
      card.update(event, this.#filter, this.#serverNames.get(event.cameraId));
      if (list.children[index] !== card.element) list.insertBefore(card.element, list.children[index] ?? null);
    });
  }

  #sectionOf(day) {
    let section = this.#days.get(day)?.element;
    if (!section) {
      section = fromTemplate('day');
      section.querySelector('h2').id = `day-${day}`;
      section.setAttribute('aria-labelledby', `day-${day}`);
      this.#days.set(day, { element: section });
    }
    return section;
  }

  #keepOnly(known, wanted) {
    for (const [key, { element }] of known) {
      if (wanted.has(key)) continue;
      element.remove();
      known.delete(key);
    }
  }

  // What stands below the list, or instead of it.
  #renderEnd() {
    const { events, missing, loaded, pending, error, complete } = this.#list;
    const find = (selector) => this.element.querySelector(selector);
    const filtered = Boolean(this.#filter.camera || this.#filter.day);
    const empty = loaded && complete && events.length === 0 && missing.length === 0 && !error;
    find('.empty').hidden = !empty;
    setText(find('.empty h2'), filtered ? 'Nothing was recorded then' : 'Nothing was recorded yet');
    find('.empty .first').hidden = filtered;
    find('.empty .other').hidden = !filtered;
    find('.loading').hidden = loaded || Boolean(error);
    find('.failure').hidden = !error;
    setText(find('.failure p'), error ? `The recordings cannot be listed: ${error.message}` : '');
    find('.more').hidden = !loaded || complete || Boolean(error && !pending);
    setText(find('.more button'), pending ? 'Loading …' : 'Show older recordings');
    const count = events.length === 1 ? '1 recording' : `${events.length} recordings`;
    setText(find('.summary'), loaded && !empty ? `${complete ? '' : 'The newest '}${count}` : '');
    if (empty) announce(find('.empty h2').textContent);
  }
}

function groupByDay(events) {
  const groups = new Map();
  for (const event of events) {
    const day = dayOf(event.start);
    if (!groups.has(day)) groups.set(day, []);
    groups.get(day).push(event);
  }
  return groups;
}
