// Plays one event in a stage: as a file where the browser can, or frame by frame; says why when neither goes.
import { fromTemplate, setText } from '../dom.js';
import { sentence } from '../sentence.js';
import { FilePlayer, canPlayFile } from './file_player.js';
import { FrameControls } from './frame_controls.js';
import { FramePlayer } from './frame_player.js';
import { lengthNow } from './words.js';

const KEY = 'oculora-frames'; // kept in this browser: the user wants frames even where the file plays

export class EventPlayer {
  #event = null;
  #file = null; // one of the two is there once the event can be played
  #frames = null;
  #controls = null;
  #choice = fromTemplate('player-choice');
  #picture = fromTemplate('recorded-picture');
  #below;
  #onTrouble;
  #seen = false;
  #resume = false; // whether it played when the page was hidden
  #note = '';

  // onTrouble(error) is called when something cannot be played.
  constructor(stage, below, onTrouble) {
    this.#below = below;
    this.#onTrouble = onTrouble;
    stage.append(this.#picture);
    below.append(this.#choice);
    for (const button of this.#choice.querySelectorAll('button')) {
      button.addEventListener('click', () => this.#choose(button.value === 'frames'));
    }
    this.#say('busy', 'spinner', 'Loading the recording', '');
    this.#renderChoice();
  }

  update(event) {
    const before = this.#event;
    this.#event = event;
    this.#frames?.update(event);
    this.#controls?.update(lengthNow(event));
    if (before?.state === event.state) return;
    if (event.state === 'failed') this.#refuse('Recording failed', sentence(event.reason || 'The reason is not known'));
    else if (event.state === 'requested') this.#say('busy', 'spinner', 'Recording begins', 'Waiting for the first picture.');
    else if (!this.#file && !this.#frames) this.#open(0);
  }

  // Frames are not fetched while nobody sees them.
  show(seen) {
    if (seen === this.#seen) return;
    this.#seen = seen;
    if (!seen) {
      this.#resume = Boolean(this.#frames?.playing);
      this.#frames?.pause();
    } else if (this.#resume) {
      this.#frames?.play();
    }
  }

  // Says why there is nothing; `again` is what the button does.
  fail(error, again) {
    this.#close();
    const gone = error.code === 401;
    this.#say(gone ? 'quiet' : 'problem', 'film', gone ? 'There is no such recording' : 'It cannot be played',
      gone ? 'It may have been deleted.' : error.message, !gone && again);
  }

  onKey(key, target) {
    if (!this.#controls) return false;
    if (key === ' ' && !target.closest('button, a')) this.#controls.toggle();
    else if (key === ',' || key === '.') this.#controls.step(key === ',' ? -1 : 1);
    else return false;
    return true;
  }

  close() {
    this.#close();
  }

  get #wantsFrames() {
    return localStorage.getItem(KEY) === 'yes';
  }

  #choose(frames) {
    try {
      localStorage.setItem(KEY, frames ? 'yes' : 'no');
    } catch { /* not kept, then */ }
    if (frames === Boolean(this.#frames)) return;
    const { frames: count } = this.#event;
    const length = lengthNow(this.#event);
    const seconds = this.#file ? this.#file.seconds : (this.#frames.position / (count || 1)) * (length / 1000);
    this.#open(seconds, frames);
  }

  #open(seconds, asFrames = this.#wantsFrames || !canPlayFile(this.#event)) {
    this.#close();
    if (asFrames) this.#openFrames(seconds);
    else this.#openFile(seconds);
    this.#renderChoice();
  }

  #openFile(seconds) {
    this.#say('busy', 'spinner', 'Opening the recording', '');
    const file = new FilePlayer(this.#event);
    this.#file = file;
    this.#screen.replaceChildren(file.element);
    file.element.setAttribute('aria-label', this.#label);
    file.addEventListener('change', () => file.started && this.#say());
    file.addEventListener('problem', ({ error }) => {
      if (!error.unplayable) return this.#failWith(error);
      this.#note = `${error.message} It is shown frame by frame.`;
      this.#open(file.seconds, true);
    });
    file.open(this.#event, seconds);
  }

  #openFrames(seconds) {
    this.#say('busy', 'spinner', 'Opening the recording', '');
    const frames = new FramePlayer(this.#event);
    this.#frames = frames;
    this.#controls = new FrameControls(frames);
    this.#controls.update(lengthNow(this.#event));
    this.#below.prepend(this.#controls.element);
    this.#screen.replaceChildren(frames.element);
    frames.element.setAttribute('role', 'img');
    frames.element.setAttribute('aria-label', this.#label);
    frames.addEventListener('change', () => frames.position >= 0 && this.#say());
    frames.addEventListener('problem', ({ error }) => this.#failWith(error));
    frames.play(this.#frameAt(seconds));
  }

  #frameAt(seconds) {
    const { frames, length } = this.#event;
    return frames > 0 && length > 0 ? Math.min(frames - 1, Math.floor((seconds * 1000 * frames) / length)) : 0;
  }

  get #label() {
    return `Recording of ${this.#event.camera}`;
  }

  get #screen() {
    return this.#picture.querySelector('.screen');
  }

  // The controls stay, so that another place or the other player can be tried.
  #failWith(error) {
    this.#say('problem', 'film', 'It cannot be played', error.message, () => this.#open(0, Boolean(this.#frames)));
    this.#onTrouble(error);
  }

  #refuse(title, detail) {
    this.#close();
    this.#say('problem', 'film', title, detail);
  }

  #close() {
    this.#file?.close();
    this.#frames?.close();
    this.#controls?.element.remove();
    this.#file = this.#frames = this.#controls = null;
    this.#screen.replaceChildren();
    this.#renderChoice();
  }

  // Without words the picture itself is shown.
  #say(tone = 'live', symbol = '', title = '', detail = '', again = null) {
    const find = (selector) => this.#picture.querySelector(selector);
    this.#picture.dataset.tone = tone;
    find('.overlay').hidden = tone === 'live';
    find('.symbol').className = `symbol icon-${symbol}`;
    setText(find('.overlay-title'), title);
    setText(find('.overlay-detail'), detail);
    find('.overlay button').hidden = !again;
    find('.overlay button').onclick = again;
  }

  #renderChoice() {
    const both = Boolean(this.#event && (this.#file || this.#frames) && canPlayFile(this.#event) && !this.#note);
    this.#choice.hidden = !both && !this.#note;
    this.#choice.querySelector('.choice').hidden = !both;
    setText(this.#choice.querySelector('.note'), this.#note);
    for (const button of this.#choice.querySelectorAll('button')) {
      button.setAttribute('aria-pressed', (button.value === 'frames') === Boolean(this.#frames));
    }
  }
}
