// The page as a person meets it: Chromium on a site with real cameras.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { test } from 'node:test';

import { Stage, isLive, untilLive, waitUntil } from './support.mjs';

let clock, street, garage, door; // camera ids

const stage = new Stage(async (site) => {
  const film = '/var/packages/Oculora/var/street.avi';
  execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'mandelbrot=size=640x360:rate=10', '-t', '6',
    '-c:v', 'mjpeg', '-pix_fmt', 'yuvj420p', await site.do('path', film)]);
  clock = await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
  street = await site.do('camera', 'Street', 'mjpeg', film, { fps: 10 });
  garage = await site.do('camera', 'Garage', 'mjpeg', 'http://127.0.0.1:1/', {});
  await site.do('oculora', 'camera', 'disable', String(await site.do('camera', 'Cellar', 'mjpeg', 'test:', {})));
  door = await site.do('camera', 'Door', 'mpeg4', 'test:', {});
});

const live = (where = stage.page) => Promise.all(['Clock', 'Street'].map((name) => untilLive(where, name)));
const heading = (name) => stage.page.getByRole('heading', { level: 1, name }).waitFor();
// Waits until these cameras alone are streamed; beside others Garage may be tried.
const streamed = (...cameras) => waitUntil(async () => {
  const found = [...(await stage.site.streams()).keys()].filter((camera) => !(cameras.length && camera === garage));
  return found.sort().join() === cameras.join();
}, `streams of [${cameras}] alone`);

// Logs in and waits for both cameras.
async function open() {
  await stage.logIn();
  await live();
}

test('a wrong password is told, the right one shows moving cameras, and log-out ends the streams', async () => {
  const { page } = stage;
  await stage.logIn('', 'wrong');
  await page.getByRole('alert').filter({ hasText: 'The name or the password is wrong.' }).waitFor();
  assert.equal(await page.getByLabel('Password').evaluate((input) => input === document.activeElement), true);
  assert.equal(await page.locator('.tile').count(), 0);
  await open();
  await heading('Cameras');
  for (const name of ['Clock', 'Street']) await stage.moves(name);
  await streamed(clock, street);
  await page.getByRole('button', { name: 'Log out' }).click();
  await page.getByText('You are logged out.').waitFor();
  await streamed();
  await page.reload();
  await page.getByLabel('Password').waitFor();
  assert.deepEqual(stage.errors, []);
});

test('pages hold four cameras, only one page streams, and what shows no picture says why', async () => {
  const { page } = stage;
  await open();
  assert.equal(await page.locator('.tile').count(), 4);
  for (const [name, state, reason] of [
    ['Garage', /No picture/, /\brefused\b/i],
    ['Cellar', /Disabled/, /disabled|switched off/i],
  ]) {
    await stage.shows(name, state);
    assert.match(await stage.tile(name).locator('.overlay').innerText(), reason);
    assert.equal(await stage.tile(name).locator('.badge').isVisible(), false);
  }
  await page.getByRole('link', { name: 'Next' }).click();
  await untilLive(page, 'Door');
  assert.equal(await page.locator('.tile').count(), 1);
  await streamed(door);
  assert.deepEqual(stage.errors, []);
});

test('nothing streams while the page is hidden, and what breaks off comes back, but not a session', async () => {
  const { page, context } = stage;
  await open();
  const setHidden = (hidden) => page.evaluate((value) => {
    Object.defineProperty(document, 'hidden', { value, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }, hidden);
  await setHidden(true);
  await streamed();
  await setHidden(false);
  await live();
  assert.deepEqual(stage.errors, []);

  await stage.killStream(clock);
  await untilLive(page, 'Clock');
  assert.equal(await isLive(page, 'Street'), true);
  assert.equal(await page.getByText('taken over').count(), 0);

  await context.setOffline(true);
  await page.getByText('The recorder cannot be reached.').waitFor();
  await context.setOffline(false);
  await page.locator('#notice').waitFor({ state: 'hidden' });
  await live();

  const form = { api: 'VELM.Oculora.Account', method: 'Logout', version: '1' };
  await context.request.post(`${stage.url}/webapi/entry.cgi`, { form });
  await page.getByText('Your session has ended. Please log in again.').waitFor();
});

const taken = (where) => where.getByText('This view was taken over by another window.');

test('of several windows the newest shows the pictures; the older one resumes when asked or left alone', async () => {
  const { page } = stage;
  await open();
  const second = await stage.newPage();
  await second.goto(stage.url);
  await live(second);
  await taken(page).waitFor();
  assert.equal(await isLive(page, 'Clock'), false);
  for (const [taker, loser] of [[page, second], [second, page]]) {
    await taker.getByRole('button', { name: 'Resume here' }).click();
    await live(taker);
    await taken(loser).waitFor();
  }
  await second.close();
  await live();
  assert.equal(await taken(page).isVisible(), false);
});

test('the large view by keyboard alone', async () => {
  const { keyboard } = stage.page;
  await open();
  const focused = () => stage.page.evaluate(() => document.activeElement.textContent.trim());
  await waitUntil(async () => (await keyboard.press('Tab'), (await focused()) === 'Clock'), 'the focus on Clock');
  await keyboard.press('Enter');
  await stage.page.locator('.single-view .state', { hasText: 'Live · 640 × 360' }).waitFor();
  await streamed(clock);
  for (const [key, name] of [['ArrowRight', 'Street'], ['ArrowLeft', 'Clock'], ['Escape', 'Cameras']]) {
    await keyboard.press(key);
    await heading(name);
  }
  assert.equal(await focused(), 'Clock');
  await live();
  assert.deepEqual(stage.errors, []);
});

for (const colorScheme of ['light', 'dark']) {
  test(`no accessibility faults, and a phone scrolls nothing sideways, ${colorScheme}`, async () => {
    const { page } = stage;
    await page.emulateMedia({ colorScheme, reducedMotion: 'reduce' }); // half-faded text has no contrast
    await stage.logIn('', 'wrong');
    await page.getByText('The name or the password is wrong.').waitFor();
    const red = await page.evaluate(() => Number(getComputedStyle(document.body).backgroundColor.match(/\d+/)[0]));
    assert.equal(red > 128, colorScheme === 'light');
    await stage.isWellMade('log-in');
    await open();
    await stage.shows('Garage', /No picture/);
    await stage.isWellMade('grid');
    await page.getByRole('link', { name: 'Clock' }).click();
    await page.locator('.single-view .badge').waitFor();
    await stage.isWellMade('large view');
    await page.goto(`${stage.url}/#/camera/999999`);
    await heading('Unknown camera');
    await stage.isWellMade('unknown camera');
  });
}

test('parts of a stream are put together however the network cuts them', async () => {
  await stage.page.goto(stage.url);
  const problems = await stage.page.evaluate(async () => {
    const { MultipartReader } = await import('/js/multipart.js');
    const bytes = (text) => Uint8Array.from(text, (char) => char.charCodeAt(0));
    const part = (body) => `--b\r\nContent-Type: image/jpeg\r\nContent-Length: ${body.length}\r\n\r\n${body}\r\n`;
    const bodies = ['\xff\xd8one', '\r\n\r\n--b\r\nContent-Length: 3\r\n\r\n', 'x'.repeat(20000), '', 'last'];
    const stream = bytes(bodies.map(part).join(''));
    const found = [];
    for (const size of [1, 2, 3, 7, 8192, stream.length]) {
      const got = [];
      const reader = new MultipartReader((body) => got.push(String.fromCharCode(...body)));
      for (let at = 0; at < stream.length; at += size) reader.push(stream.subarray(at, at + size));
      if (JSON.stringify(got) !== JSON.stringify(bodies.filter(Boolean))) found.push(`cut to ${size}`);
    }
    for (const text of ['--b\r\nContent-Type: image/jpeg\r\n\r\n', `--b\r\nContent-Length: ${2 ** 40}\r\n\r\n`,
      'x'.repeat(40000)]) {
      try {
        new MultipartReader(() => {}).push(bytes(text));
        found.push(`not refused: ${text.slice(0, 40)}`);
      } catch { /* as it should be */ }
    }
    return found;
  });
  assert.deepEqual(problems, []);
});
