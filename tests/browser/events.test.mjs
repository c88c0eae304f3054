// Recordings on the page: real files served by the real module, played in a real Chromium.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Stage, untilLive, waitUntil } from './support.mjs';

const FRAMES = 300; // of the imported files, 10 a second
let clock, yard; // camera ids
let video, pictures, lost; // event ids

const stage = new Stage(async (site) => {
  clock = await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
  yard = await site.do('camera', 'Yard', 'h264', 'test:640x360', { fps: 10 });
  const importFilm = async (camera, name, start, ...codec) => {
    const film = `/var/packages/Oculora/var/${name}`;
    const pattern = ['-f', 'lavfi', '-i', 'testsrc2=size=640x360:rate=10', '-t', FRAMES / 10];
    execFileSync('ffmpeg', ['-v', 'error', ...pattern, ...codec, await site.do('path', film)]);
    return Number(await site.do('oculora', 'event', 'import', camera, film, '--keep', '--start', start));
  };
  video = await importFilm(yard, 'film.mp4', '2026-02-03T10:00:00', '-c:v', 'libx264', '-g', '20', '-pix_fmt', 'yuv420p');
  pictures = await importFilm(clock, 'film.avi', '2026-02-03T12:00:00', '-c:v', 'mjpeg', '-pix_fmt', 'yuvj420p');
  lost = await importFilm(clock, 'lost.avi', '2026-02-04T10:00:00', '-c:v', 'mjpeg', '-pix_fmt', 'yuvj420p');
  const garage = await site.do('camera', 'Garage', 'mjpeg', 'http://127.0.0.1:1/', {});
  await site.do('serve');
  await site.do('lose', lost);
  await site.do('oculora', 'event', 'record', garage, 10); // fails in half a minute
});

const cards = () => stage.page.locator('.event .camera').allTextContents();
const listed = (...cameras) =>
  waitUntil(async () => (await cards()).sort().join() === cameras.sort().join(), `recordings of ${cameras}`);
const recording = (id) => stage.logIn(`#/recording/${id}`);
const frame = async () => Number(/^Frame (\d+) of \d+$/.exec(await stage.page.locator('.frame').textContent())?.[1] ?? 0);
const press = (name) => stage.page.getByRole('button', { name }).click();

test('the list is grouped by day, filtered, and survives reload and going back', async () => {
  const { page } = stage;
  await stage.logIn('#/recordings');
  await listed('Yard', 'Clock', 'Clock', 'Garage');
  const days = await page.locator('.day > h2').allTextContents();
  assert.match(days[0], /^Today, /);
  assert.match(days.join(), /February 4, 2026.*February 3, 2026/);
  await waitUntil(() => page.locator('.event img').last().evaluate((image) => image.naturalWidth > 0), 'a thumbnail');
  await stage.isWellMade('list');
  await page.getByLabel('Camera').selectOption('Clock');
  await listed('Clock', 'Clock');
  await page.getByLabel('Day', { exact: true }).fill('2026-02-03');
  await listed('Clock');
  await page.reload();
  await listed('Clock');
  await page.locator('.event a').click();
  await page.getByRole('heading', { level: 1, name: 'Clock' }).waitFor();
  await page.goBack();
  await listed('Clock');
  await press('Show all');
  await listed('Yard', 'Clock', 'Clock', 'Garage');
  assert.deepEqual(stage.errors, []);
});

test('H.264 plays in the browser’s own player and seeks to the middle', async () => {
  const { page } = stage;
  await recording(video);
  const film = page.locator('video');
  const at = () => film.evaluate(({ currentTime }) => currentTime);
  await waitUntil(async () => (await at()) > 0.5, 'the video to play');
  await film.evaluate((element) => (element.currentTime = 20));
  await waitUntil(async () => (await at()) > 20.5, 'the video to play on');
  await press('Frame by frame');
  await waitUntil(async () => (await frame()) > 200, 'the same place, frame by frame');
  await stage.isWellMade('recording');
  const coming = page.waitForEvent('download');
  await page.getByRole('link', { name: 'Download' }).click();
  const download = await coming;
  assert.match(download.suggestedFilename(), /^Yard 2026-02-03 .*\.mp4$/);
  assert.equal(await download.failure(), null);
  assert.deepEqual(stage.errors, []);
});

// Pictures shown a second, and frames advanced a second.
async function pace() {
  const look = async () => [await stage.page.evaluate(() => [globalThis.shown, performance.now()]), await frame()];
  const [[shown, time], first] = await look();
  await sleep(3000);
  const [[shownLater, later], last] = await look();
  const seconds = (later - time) / 1000;
  return [(shownLater - shown) / seconds, (last - first) / seconds];
}

test('the frame player keeps the pace, changes its rate while it plays, seeks and steps', async () => {
  const { page } = stage;
  await page.addInitScript(() => {
    globalThis.shown = 0;
    const { transferFromImageBitmap: show } = ImageBitmapRenderingContext.prototype;
    ImageBitmapRenderingContext.prototype.transferFromImageBitmap = function count(bitmap) {
      globalThis.shown += 1;
      show.call(this, bitmap);
    };
  });
  await recording(pictures);
  await waitUntil(frame, 'the first frame');
  for (const [button, rate, speed] of [['', 10, 10], ['2 times slower', 5, 5], ['4 times faster', 10, 40]]) {
    if (button) await press(button);
    await sleep(1000);
    // A busy machine shows fewer, and none of them twice.
    const [shown, advanced] = await pace();
    assert.ok(shown > rate / 4 && shown < rate * 1.5, `${button}: ${shown} pictures a second`);
    assert.ok(Math.abs(advanced / shown - speed / rate) < speed / rate / 4, `${button}: ${advanced} frames a second`);
  }
  await press('Pause');
  const seek = page.getByLabel('Place in the recording');
  await seek.fill('150');
  await waitUntil(async () => (await frame()) === 151, 'frame 151');
  await press('One frame on');
  await waitUntil(async () => (await frame()) === 152, 'frame 152');
  await press('Normal speed');
  await seek.fill(String(FRAMES - 10));
  await press('Play');
  await page.getByRole('button', { name: 'Play again' }).waitFor();
  assert.equal(await frame(), FRAMES);
  assert.deepEqual(stage.errors, []);
});

test('what cannot be played says why, and an ended session leads to the log-in', async () => {
  const { page, context } = stage;
  await recording(lost);
  await page.getByText('It cannot be played').waitFor();
  await page.goto(`${stage.url}/#/recordings`);
  const failed = page.locator('.event[data-state="failed"]');
  await failed.waitFor({ timeout: 60000 });
  assert.match(await failed.locator('.reason').textContent(), /refused/i);
  await failed.locator('a').click();
  await page.getByText('Recording failed').waitFor();
  assert.match(await page.locator('.overlay-detail').textContent(), /refused/i);
  const form = { api: 'VELM.Oculora.Account', method: 'Logout', version: '1' };
  await context.request.post(`${stage.url}/webapi/entry.cgi`, { form });
  await page.getByText('Your session has ended. Please log in again.').waitFor();
});

test('a live picture is recorded until the button is pressed again', async () => {
  const { page } = stage;
  await stage.logIn();
  await untilLive(page, 'Clock');
  await press('Record Clock');
  await page.getByRole('button', { name: /^0:2\d, stop recording Clock/ }).click();
  await page.getByRole('button', { name: 'Recorded Clock' }).waitFor();
  await page.getByRole('link', { name: 'Recordings' }).click();
  const card = page.locator('.event', { hasText: 'On request' }).first();
  await card.getByRole('link').click();
  await waitUntil(async () => (await frame()) > 3, 'the recording to play');
});
