// The buttons below a frame player: play, step, seek, rate.
import { fromTemplate, setText } from '../dom.js';
import { RATES, rateInWords, rateLabel } from './rates.js';
import { span, spanInWords } from './words.js';

export class FrameControls {
  #player;
  #length = 0; // milliseconds
  #resume = false; // whether it played when a drag began
  #dragging = false;
  #find;

  constructor(player) {
    this.#player = player;
    this.element = fromTemplate('frame-controls');
    this.#find = (selector) => this.element.querySelector(selector);
    this.#find('.play').addEventListener('click', () => this.toggle());
    this.#find('.back-step').addEventListener('click', () => this.step(-1));
    this.#find('.step').addEventListener('click', () => this.step(1));
    this.#find('.seek').addEventListener('input', () => this.#drag());
    this.#find('.seek').addEventListener('change', () => this.#drop());
    this.#find('.speed').hidden = !player.hasRates;
    this.#find('.one-speed').hidden = player.hasRates;
    if (player.hasRates) this.#find('.rates').append(...RATES.map((rate) => this.#rateButton(rate)));
    player.addEventListener('change', () => this.#render());
    this.#render();
  }

  // `length`: of the whole recording, in milliseconds.
  update(length) {
    this.#length = length;
    this.#render();
  }

  toggle() {
    if (this.#player.playing) this.#player.pause();
    else this.#player.play();
  }

  step(frames) {
    this.#player.show(this.#player.position + frames);
  }

  #rateButton(rate) {
    const button = document.createElement('button');
    Object.assign(button, { type: 'button', className: 'rate', textContent: rateLabel(rate), title: rateInWords(rate) });
    button.dataset.rate = rate;
    button.setAttribute('aria-label', `${rateLabel(rate)}, ${rateInWords(rate)}`);
    button.addEventListener('click', () => this.#player.setRate(rate));
    return button;
  }

  #drag() {
    if (!this.#dragging) this.#resume = this.#player.playing;
    this.#dragging = true;
    this.#player.show(Number(this.#find('.seek').value));
    this.#render();
  }

  #drop() {
    this.#dragging = false;
    if (this.#resume) this.#player.play(Number(this.#find('.seek').value));
  }

  #timeOf(frame) {
    const { count } = this.#player;
    return count > 0 ? (Math.max(0, frame) / count) * this.#length : 0;
  }

  #render() {
    const { playing, ended, position, count, rate } = this.#player;
    const seek = this.#find('.seek');
    this.#find('.play').dataset.does = playing ? 'pause' : 'play';
    setText(this.#find('.play .visually-hidden'), playing ? 'Pause' : ended ? 'Play again' : 'Play');
    this.#find('.back-step').disabled = playing || position <= 0;
    this.#find('.step').disabled = playing || (count > 0 && position + 1 >= count);
    seek.disabled = count === 0;
    seek.max = Math.max(0, count - 1);
    if (!this.#dragging) seek.value = Math.max(0, position);
    const time = this.#timeOf(Number(this.#dragging ? seek.value : position));
    seek.setAttribute('aria-valuetext', `${spanInWords(time)}, frame ${Number(seek.value) + 1}`);
    setText(this.#find('.time'), count > 0 ? `${span(time)} / ${span(this.#length)}` : '');
    setText(this.#find('.frame'), position < 0 ? '' : `Frame ${position + 1}${count > 0 ? ` of ${count}` : ''}`);
    for (const button of this.element.querySelectorAll('.rate')) {
      button.setAttribute('aria-pressed', Number(button.dataset.rate) === rate);
    }
  }
}
