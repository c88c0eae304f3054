// One recording in the list: its thumbnail, when, where and how long; the whole card leads to it.
import { fromTemplate, setText } from '../dom.js';
import { recordingHash } from '../routes.js';
import { sentence } from '../sentence.js';
import { showServerName } from '../server_line.js';
import { thumbnailUrl } from './calls.js';
import { causeName, clock, lengthNow, size, span, spanInWords } from './words.js';

const MARKS = { recording: 'Recording', requested: 'Starting', failed: 'Failed' };

export class EventCard {
  #event;
  #find;

  constructor() {
    this.element = fromTemplate('event-card');
    this.#find = (selector) => this.element.querySelector(selector);
    this.#find('img').addEventListener('error', () => this.element.classList.add('no-thumbnail'));
    this.#find('img').addEventListener('load', () => this.element.classList.remove('no-thumbnail'));
  }

  get link() {
    return this.#find('a');
  }

  // `serverName`: of the server that recorded it, '' when it is this host.
  update(event, filter, serverName) {
    const before = this.#event;
    this.#event = event;
    this.link.href = recordingHash(event.id, filter);
    this.element.dataset.state = event.state;
    setText(this.link, clock(event.start));
    setText(this.#find('.camera'), event.camera);
    showServerName(this.#find('.server'), serverName);
    setText(this.#find('.reason'), event.state === 'failed' ? sentence(event.reason || 'It could not be recorded') : '');
    setText(this.#find('.mark span'), MARKS[event.state] ?? '');
    this.#find('.mark').hidden = !MARKS[event.state];
    this.#find('.kept').hidden = !event.kept;
    const missing = event.state === 'recording' && this.element.classList.contains('no-thumbnail'); // it comes later
    if (before?.state !== event.state || missing) this.#showThumbnail(event);
    this.tick();
  }

  // What grows while it is recorded.
  tick() {
    const event = this.#event;
    const length = lengthNow(event);
    setText(this.#find('.length [aria-hidden]'), length > 0 ? span(length) : '');
    setText(this.#find('.length .visually-hidden'), length > 0 ? spanInWords(length) : '');
    const facts = [causeName(event)];
    if (event.bytes > 0) facts.push(size(event.bytes));
    setText(this.#find('.facts'), facts.join(' · '));
  }

  #showThumbnail(event) {
    const has = event.state === 'ready' || event.state === 'recording';
    if (!has) this.element.classList.add('no-thumbnail');
    if (has) this.#find('img').src = thumbnailUrl(event);
  }
}
