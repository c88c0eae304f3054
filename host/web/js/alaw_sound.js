// Plays A-law sound as it arrives: 8000 samples a second, one channel. Silent until somebody switches it on.

const RATE = 8000;
const LEAD = 0.3; // seconds in hand, for sound that comes late
const MOST = 1; // more in hand than this is left out until LEAD is reached

const LEVELS = Float32Array.from({ length: 256 }, (_, code) => {
  const bits = code ^ 0x55;
  const exponent = (bits >> 4) & 7;
  const size = ((bits & 15) << 4) + (exponent > 0 ? 0x108 : 8);
  return ((bits & 0x80 ? 1 : -1) * (size << Math.max(0, exponent - 1))) / 32768;
});

export class AlawSound {
  #context = null;
  #until = 0; // when what was given to the context ends, on its clock
  #skipping = false;
  came = false; // whether there ever was any
  on = false;

  // Browsers let sound begin when the user has just asked for it.
  turn(on) {
    this.on = on;
    if (on) this.#start();
    else this.pause();
  }

  // Until more comes.
  pause() {
    this.#context?.close();
    this.#context = null;
  }

  play(samples) {
    if (samples.length === 0) return;
    this.came = true;
    if (!this.on) return;
    this.#start();
    const context = this.#context;
    const ahead = this.#until - context.currentTime;
    this.#skipping = this.#skipping ? ahead > LEAD : ahead > MOST;
    if (this.#skipping) return;
    if (ahead <= 0) this.#until = context.currentTime + LEAD; // the first, or after a gap
    const buffer = context.createBuffer(1, samples.length, RATE);
    buffer.copyToChannel(Float32Array.from(samples, (code) => LEVELS[code]), 0);
    const source = new AudioBufferSourceNode(context, { buffer });
    source.connect(context.destination);
    source.start(this.#until);
    this.#until += buffer.duration;
  }

  #start() {
    if (this.#context) return;
    this.#context = new AudioContext({ sampleRate: RATE });
    this.#until = 0;
    this.#skipping = false;
  }
}
