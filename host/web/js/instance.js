// The view instance: which window of a session shows live pictures.
//
// The recorder ends the streams of a session's older view when a newer one starts. So one window at a time is active:
// windows of this browser tell each other over a channel; one elsewhere is noticed because all streams end while their
// cameras are well. A window that lost its streams waits for a word instead of taking them back.

const SAME_LOSS_MS = 1500; // streams that end so close together were ended by one cause
const SUSPICIOUS_MS = 15000; // losing everything twice in this time is no accident

// A number that no other window has, within 31 bits.
const newId = () => (Date.now() % 0x7fffffff) + 1;

// Dispatches 'change' when it becomes active or ceases to be, 'free' when the window that took over went away.
export class ViewInstance extends EventTarget {
  #channel = new BroadcastChannel('oculora-view');
  #rival = 0; // the instance that took over
  #lastLoss = -Infinity;
  id = 0; // 0: not active

  constructor() {
    super();
    this.#channel.onmessage = ({ data }) => this.#hear(data);
  }

  get active() {
    return this.id !== 0;
  }

  get takenOver() {
    return this.#rival !== 0;
  }

  // Becomes the window that shows live pictures, unless another one took over; `force` takes it back.
  activate(force = false) {
    if (this.active || (this.takenOver && !force)) return;
    this.id = newId();
    this.#rival = 0;
    this.#lastLoss = -Infinity;
    this.#channel.postMessage({ claim: this.id });
    this.#changed();
  }

  deactivate() {
    if (!this.active) return;
    this.#channel.postMessage({ release: this.id });
    this.id = 0;
    this.#changed();
  }

  // Forgets a take-over, as when somebody logs out.
  reset() {
    this.deactivate();
    this.#rival = 0;
  }

  // Every stream has ended although the cameras are well.
  lostAll(now = performance.now()) {
    if (!this.active) return;
    const since = now - this.#lastLoss;
    this.#lastLoss = now;
    if (since > SAME_LOSS_MS && since < SUSPICIOUS_MS) this.#yieldTo(-1);
  }

  #hear({ claim, release }) {
    if (claim && claim !== this.id) this.#yieldTo(claim);
    if (release && release === this.#rival) {
      this.#rival = 0;
      this.dispatchEvent(new Event('free'));
    }
  }

  #yieldTo(rival) {
    this.#rival = rival;
    this.id = 0;
    this.#changed();
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}
