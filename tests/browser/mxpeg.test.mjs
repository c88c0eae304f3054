// MxPEG cameras and previews on the page: real cameras, a real Chromium, and FFmpeg's idea of the same pictures.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { Stage, waitUntil } from './support.mjs';

const TONE = 1000;
const BUILD = process.env.OCULORA_BUILD ?? fileURLToPath(new URL('../../build', import.meta.url));
const CAMERA = path.join(BUILD, 'bin', 'mxpeg-camera');
const SMOOTH = /^Live · 648 × 360 · ([2-9]|1\d) fps$/; // key pictures alone are 0.5 a second
const PREVIEW = /^Live · 640 × 360 · \S+ fps$/;
const VIDEO = /^Live · 1280 × 720 .* s behind$/;

let source; // the MxPEG camera's process
let hall, yard; // camera ids

const stage = new Stage(async (site) => {
  const options = ['--size', '648x360', '--fps', '10', '--key-every', '20', '--tone', String(TONE)];
  source = spawn(CAMERA, ['--port', '0', ...options], { stdio: ['ignore', 'pipe', 'inherit'] });
  const address = String((await once(source.stdout, 'data'))[0]).match(/http:\S+/)[0];
  hall = await site.do('camera', 'Hall', 'mxpeg', address, { fps: 10 });
  yard = await site.do('camera', 'Yard', 'h264', 'test:1280x720', { fps: 10 });
  await site.do('camera', 'Door', 'mpeg4', 'test:1280x720', { fps: 10 });
});
after(() => source?.kill());

const buttonOf = (name, label) => stage.tile(name).getByRole('button', { name: `${label} of ${name}` });

const endOf = (camera) => waitUntil(async () => !(await stage.site.remux(camera)), `the end of the video of ${camera}`);

// Keeps what the page lets sound in `heard`: its contexts, and the pieces with the times at which they start.
const listen = () => stage.page.addInitScript(() => {
  globalThis.heard = { contexts: [], pieces: [] };
  const { start } = AudioBufferSourceNode.prototype;
  AudioBufferSourceNode.prototype.start = function begin(when) {
    globalThis.heard.pieces.push({ when, samples: [...this.buffer.getChannelData(0)] });
    start.call(this, when);
  };
  globalThis.AudioContext = class extends AudioContext {
    constructor(options) {
      super(options);
      globalThis.heard.contexts.push(this);
      globalThis.heard.pieces = [];
    }
  };
});
const contexts = () => stage.page.evaluate(() => globalThis.heard.contexts.map(({ state }) => state));

// Waits for two seconds of sound without a gap, which must be the camera's tone.
async function sounds() {
  const pieces = await waitUntil(() => stage.page.evaluate(() => {
    const { pieces: all } = globalThis.heard;
    const start = all.findLastIndex(({ when }, index) => {
      const before = all[index - 1];
      return !before || Math.abs(before.when + before.samples.length / 8000 - when) > 0.0001;
    });
    const joined = all.slice(start);
    return joined.reduce((sum, { samples }) => sum + samples.length, 0) > 16000 && joined;
  }), 'two seconds of sound');
  const all = pieces.flatMap(({ samples }) => samples);
  const rises = all.filter((level, index) => level >= 0 && all[index - 1] < 0).length;
  assert.ok(Math.abs((rises * 8000) / all.length - TONE) < TONE / 50, `${rises} waves in ${all.length} samples`);
  assert.ok(Math.max(...all) > 0.05 && Math.max(...all) <= 1);
}

test('an MxPEG camera shows all its pictures, sounds when asked, and comes back when its stream dies', async () => {
  await listen();
  await stage.logIn();
  await stage.shows('Hall', SMOOTH);
  await stage.moves('Hall');
  assert.deepEqual(await contexts(), []);
  await buttonOf('Hall', 'Sound').click();
  await sounds();
  assert.deepEqual(await contexts(), ['running']);
  await stage.isWellMade('MxPEG');

  await stage.killStream(hall);
  await stage.shows('Hall', SMOOTH);
  await sounds();
  assert.deepEqual(await contexts(), ['closed', 'running']);

  await buttonOf('Hall', 'Sound').click();
  await waitUntil(async () => !(await contexts()).includes('running'), 'silence');
  await buttonOf('Hall', 'Sound').click();
  await stage.tile('Hall').getByRole('link').click();
  await stage.page.locator('.single-view .state', { hasText: '648 × 360' }).waitFor();
  await stage.moves('Hall');
  assert.deepEqual(await contexts(), ['closed', 'closed', 'closed']);
  // Which the grid showed: with the page a Close under way would go, and the next test count one more.
  await endOf(yard);
  assert.deepEqual(stage.errors, []);
});

test('cameras without a picture view of their own show previews, H.264 when the user wants it', async () => {
  const { page, site } = stage;
  await stage.logIn();
  await stage.shows('Door', PREVIEW);
  await stage.moves('Door');
  await stage.tile('Door').getByText('Preview: key frames only.').waitFor();
  assert.equal(await buttonOf('Door', 'Preview').isVisible(), false);

  await stage.shows('Yard', VIDEO);
  await buttonOf('Yard', 'Preview').click();
  await stage.shows('Yard', PREVIEW);
  await endOf(yard);
  await page.reload();
  await stage.shows('Yard', PREVIEW);
  assert.equal(await site.remux(yard), null);
  await stage.isWellMade('preview');
  await buttonOf('Yard', 'Preview').click();
  await stage.shows('Yard', VIDEO);
  assert.deepEqual(stage.errors, []);
});

// Shows pictures with the page's own player: how many it painted, what it says, and its canvas as PNG.
const play = (parts) => stage.page.evaluate(async (texts) => {
  const [{ MxpegPlayer }, { DecodeQueue }] =
    await Promise.all(['mxpeg_player', 'decode_queue'].map((name) => import(`/js/${name}.js`)));
  const player = new MxpegPlayer();
  let painted = 0;
  const queue = new DecodeQueue((...picture) => (painted += Number(player.paint(...picture))));
  for (const text of texts) {
    player.take(Uint8Array.from(atob(text), (char) => char.charCodeAt(0)), queue);
    while (!queue.idle) await new Promise((resolve) => setTimeout(resolve, 5));
  }
  return { painted, note: player.note, png: player.element.toDataURL().split(',')[1] };
}, parts.map((part) => part.toString('base64')));

// The pictures of a recorded stream, each with the sound that follows it.
function split(stream) {
  const starts = [];
  for (let at = 0; (at = stream.indexOf('ffd8fffe00124d5846', at, 'hex')) >= 0; at += 1) starts.push(at);
  return starts.map((start, index) => Buffer.from(stream.subarray(start, starts[index + 1])));
}

test('pictures come out as FFmpeg decodes them; what cannot be decoded waits for the next key picture', async () => {
  const folder = mkdtempSync(path.join(tmpdir(), 'mxpeg-'));
  after(() => rmSync(folder, { recursive: true }));
  const file = path.join(folder, 'film.mxg');
  // Longer than what is compared: FFmpeg may leave out what stands at the end.
  const options = ['--size', '648x360', '--fps', '10', '--key-every', '15', '--tone', '440'];
  execFileSync(CAMERA, ['--file', file, '--seconds', '3', ...options]);
  const frame = (number) => execFileSync('ffmpeg', ['-v', 'error', '-f', 'mxg', '-i', file, '-vf',
    `select=eq(n\\,${number}),scale=flags=accurate_rnd+full_chroma_int+bilinear:in_range=full`, '-frames:v', '1',
    '-f', 'image2pipe', '-c:v', 'png', '-']);
  await stage.page.goto(stage.url);
  const cut = (parts) => (parts[10] = parts[10].subarray(0, 40)); // within the mask
  const recolour = (parts) => [0, 15].forEach((key) => (parts[key][parts[key].indexOf('ffc0', 'hex') + 11] = 0x21));
  for (const [what, harm, painted, note] of [
    ['whole', () => {}, 20, /^$/],
    ['a loss, and a key picture', cut, 15, /^$/],
    ['other colours', recolour, 2, /^Key pictures only/],
  ]) {
    const parts = split(readFileSync(file)).slice(0, 20);
    harm(parts);
    const shown = await play(parts);
    assert.equal(shown.painted, painted, what);
    assert.match(shown.note, note, what);
    if (harm === recolour) continue;
    const png = Buffer.from(shown.png, 'base64');
    const [off, before] = [await stage.difference(png, frame(19)), await stage.difference(png, frame(18))];
    // Decoders mix colours at the edges of blocks, each in its own way.
    assert.ok(off < 0.05 && off < before / 2, `${what}: ${off} off, ${before} off the picture before`);
  }
});
