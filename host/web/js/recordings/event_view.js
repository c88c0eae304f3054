// One recording: its player, what it is, and what can be done with it.
import { SESSION_ENDED } from '../api.js';
import { announce, fromTemplate, setText } from '../dom.js';
import { setLink } from '../grid.js';
import { recordingHash, recordingsHash } from '../routes.js';
import { serverNamesOf, showServerName } from '../server_line.js';
import { fileUrl, getEvent, keepEvent, removeEvent } from './calls.js';
import { EventPlayer } from './event_player.js';
import { forgetList } from './event_list.js';
import { neighboursOf } from './neighbours.js';
import { causeName, clock, lengthNow, moment, size, span, stamp } from './words.js';

const POLL_MS = 2000;

export class EventView {
  title = 'Recording';
  #id;
  #filter;
  #event = null; // once known
  #serverNames = new Map(); // camera id: name
  #player;
  #timer = 0;
  #closed = false;
  #seen = false;
  #onTrouble;
  #find;

  // `admin`: whether the user may keep and remove recordings. onTrouble() is called when the session may be over.
  constructor({ id, filter }, admin, onTrouble) {
    this.#id = id;
    this.#filter = filter;
    this.#onTrouble = onTrouble;
    this.element = fromTemplate('recording');
    this.#find = (selector) => this.element.querySelector(selector);
    this.#find('.back').href = recordingsHash(filter);
    this.#player = new EventPlayer(this.#find('.stage'), this.#find('.below'), (error) => this.#trouble(error));
    for (const name of ['.keep', '.remove']) this.#find(name).hidden = !admin;
    this.#find('.keep').addEventListener('click', () => this.#act(() => this.#keep()));
    this.#find('.remove').addEventListener('click', () => this.#find('dialog').showModal());
    this.#find('dialog').addEventListener('close', ({ target }) => target.returnValue === 'remove' && this.#act(() => this.#remove()));
    for (const name of ['prev', 'next']) setLink(this.#find(`[rel=${name}]`), false);
    this.#load();
  }

  show(seen) {
    this.#seen = seen;
    this.#player.show(seen);
    if (seen && this.#event && !this.#timer) this.#schedule();
  }

  update(cameras) {
    this.#serverNames = serverNamesOf(cameras);
    this.#renderServer();
  }

  focus() {
    scrollTo(0, 0);
    this.#find('h1').focus();
  }

  onKey(key, target) {
    if (target.closest('input, select, textarea, video, dialog, [contenteditable]')) return false;
    const go = { Escape: '.back', p: '[rel=prev]', n: '[rel=next]' }[key];
    if (go) this.#find(go).click();
    return Boolean(go) || this.#player.onKey(key, target);
  }

  close() {
    this.#closed = true;
    clearTimeout(this.#timer);
    this.#player.close();
  }

  async #load() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    const first = !this.#event;
    try {
      const event = await getEvent(this.#id);
      if (this.#closed) return;
      this.#event = event;
      this.#find('.problem').hidden = true;
      this.#render();
      this.#player.update(event);
      if (first) this.#loadNeighbours();
    } catch (error) {
      if (this.#closed) return;
      this.#trouble(error);
      this.#player.fail(error, () => this.#load());
      return;
    }
    this.#schedule();
  }

  // One that is still changing is asked for again.
  #schedule() {
    const { state } = this.#event;
    if (this.#seen && (state === 'recording' || state === 'requested')) this.#timer = setTimeout(() => this.#load(), POLL_MS);
  }

  async #loadNeighbours() {
    const { before, after } = await neighboursOf(this.#event).catch(() => ({}));
    setLink(this.#find('[rel=prev]'), before && recordingHash(before.id, this.#filter));
    setLink(this.#find('[rel=next]'), after && recordingHash(after.id, this.#filter));
  }

  #trouble(error) {
    announce(error.message);
    if (error.code === SESSION_ENDED) this.#onTrouble();
  }

  async #act(action) {
    try {
      await action();
    } catch (error) {
      if (this.#closed) return;
      this.#trouble(error);
      setText(this.#find('.problem'), error.message);
      this.#find('.problem').hidden = false;
    }
  }

  async #keep() {
    await keepEvent(this.#id, !this.#event.kept);
    await this.#load();
  }

  async #remove() {
    await removeEvent(this.#id);
    forgetList();
    this.#find('.back').click();
  }

  #renderServer() {
    showServerName(this.#find('.server'), this.#serverNames.get(this.#event?.cameraId));
  }

  #render() {
    const event = this.#event;
    const facts = [causeName(event)];
    if (lengthNow(event) > 0) facts.push(span(lengthNow(event)));
    if (event.bytes > 0) facts.push(size(event.bytes));
    if (event.state === 'recording') facts.push('still being recorded');
    this.title = `${event.camera}, ${clock(event.start)}`;
    setText(document.querySelector('title'), `${this.title} – Oculora`);
    setText(this.#find('h1'), event.camera);
    this.#renderServer();
    setText(this.#find('.when'), moment(event.start));
    setText(this.#find('.state'), facts.join(' · '));
    const hasFile = event.state === 'ready' || event.state === 'recording';
    setLink(this.#find('.download'), hasFile && fileUrl(event));
    this.#find('.download').download = `${event.camera} ${stamp(event.start)}.${event.file}`;
    this.#find('.keep').setAttribute('aria-pressed', Boolean(event.kept));
  }
}
