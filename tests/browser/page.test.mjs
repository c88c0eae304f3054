// The page as a person meets it: Chromium on a site with real cameras.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { after, afterEach, before, beforeEach, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Site, accessibilityFaults, difference, isLive as isLiveIn, launch, logIn as enter, shoot, tileOf, untilLive,
  waitUntil } from './support.mjs';

const NAME = 'anna';
const PASSWORD = 'correct horse battery';
const DESKTOP = { width: 1280, height: 800 };

let site, url, browser, context, page;
let clock, street, garage, door; // camera ids
let errors; // what the page's console complained about

before(async () => {
  site = new Site();
  const film = '/var/packages/Oculora/var/street.avi';
  execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'mandelbrot=size=640x360:rate=10', '-t', '6',
    '-c:v', 'mjpeg', '-pix_fmt', 'yuvj420p', await site.do('path', film)]);
  await site.do('user', NAME, PASSWORD);
  clock = await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
  street = await site.do('camera', 'Street', 'mjpeg', film, { fps: 10 });
  garage = await site.do('camera', 'Garage', 'mjpeg', 'http://127.0.0.1:1/', {});
  await site.do('oculora', 'camera', 'disable', String(await site.do('camera', 'Cellar', 'mjpeg', 'test:', {})));
  door = await site.do('camera', 'Door', 'mpeg4', 'test:', {});
  url = await site.do('serve');
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await site?.close();
});

beforeEach(async () => {
  context = await browser.newContext({ viewport: DESKTOP });
  page = await newPage(context);
});

afterEach(() => context.close());

async function newPage(where) {
  const fresh = await where.newPage();
  errors = [];
  fresh.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
  fresh.on('pageerror', (error) => errors.push(String(error)));
  return fresh;
}

const logIn = (password = PASSWORD) => enter(page, url, NAME, password);
const tile = (name) => tileOf(page, name);
const isLive = (name, where = page) => isLiveIn(where, name);
const live = (where = page) => Promise.all(['Clock', 'Street'].map((name) => untilLive(where, name)));
const shows = (name, state) => tile(name).locator('.state', { hasText: state }).waitFor();
const heading = (name) => page.getByRole('heading', { level: 1, name }).waitFor();
// Waits until these cameras alone are streamed; beside others Garage may be tried.
const streamed = (...cameras) => waitUntil(async () => {
  const found = [...(await site.streams()).keys()].filter((camera) => !(cameras.length && camera === garage));
  return found.sort().join() === cameras.join();
}, `streams of [${cameras}] alone`);

// Logs in and waits for both cameras.
async function open() {
  await logIn();
  await live();
}

test('a wrong password is told, the right one shows moving cameras, and log-out ends the streams', async () => {
  await logIn('wrong');
  await page.getByRole('alert').filter({ hasText: 'The name or the password is wrong.' }).waitFor();
  assert.equal(await page.getByLabel('Password').evaluate((input) => input === document.activeElement), true);
  assert.equal(await page.locator('.tile').count(), 0);
  await open();
  await heading('Cameras');
  const scratch = await context.newPage();
  await page.bringToFront();
  for (const name of ['Clock', 'Street']) {
    const canvas = tile(name).getByRole('img', { name: `Live picture of ${name}` });
    const first = await shoot(page, canvas);
    await sleep(2000); // so far apart must the two pictures be
    const share = await difference(scratch, first, await shoot(page, canvas));
    assert.ok(share > 0.002, `${name} stands still: ${share}`);
    assert.equal(await isLive(name), true);
  }
  await streamed(clock, street);
  await page.getByRole('button', { name: 'Log out' }).click();
  await page.getByText('You are logged out.').waitFor();
  await streamed();
  await page.reload();
  await page.getByLabel('Password').waitFor();
  assert.deepEqual(errors, []);
});

test('pages hold four cameras, only one page streams, and what shows no picture says why', async () => {
  await open();
  assert.equal(await page.locator('.tile').count(), 4);
  for (const [name, state, reason] of [
    ['Garage', 'No picture', /\brefused\b/i],
    ['Cellar', 'Disabled', /disabled|switched off/i],
  ]) {
    await shows(name, state);
    assert.match(await tile(name).locator('.overlay').innerText(), reason);
    assert.equal(await tile(name).locator('.badge').isVisible(), false);
  }
  await page.getByRole('link', { name: 'Next' }).click();
  await untilLive(page, 'Door');
  assert.equal(await page.locator('.tile').count(), 1);
  await streamed(door);
  assert.deepEqual(errors, []);
});

test('nothing streams while the page is hidden, and what breaks off comes back, but not a session', async () => {
  await open();
  const setHidden = (hidden) => page.evaluate((value) => {
    Object.defineProperty(document, 'hidden', { value, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }, hidden);
  await setHidden(true);
  await streamed();
  await setHidden(false);
  await live();
  assert.deepEqual(errors, []);

  const victim = (await site.streams()).get(clock);
  await site.do('kill', victim);
  await waitUntil(async () => ((await site.streams()).get(clock) ?? victim) !== victim, 'another stream of Clock');
  await untilLive(page, 'Clock');
  assert.equal(await isLive('Street'), true);
  assert.equal(await page.getByText('taken over').count(), 0);

  await context.setOffline(true);
  await page.getByText('The recorder cannot be reached.').waitFor();
  await context.setOffline(false);
  await page.locator('#notice').waitFor({ state: 'hidden' });
  await live();

  await context.request.post(`${url}/webapi/entry.cgi`,
    { form: { api: 'VELM.Oculora.Account', method: 'Logout', version: '1' } });
  await page.getByText('Your session has ended. Please log in again.').waitFor();
});

const taken = (where) => where.getByText('This view was taken over by another window.');

test('of several windows the newest shows the pictures; the older one resumes when asked or left alone', async () => {
  await open();
  const second = await context.newPage();
  await second.goto(url);
  await live(second);
  await taken(page).waitFor();
  assert.equal(await isLive('Clock'), false);
  await page.getByRole('button', { name: 'Resume here' }).click();
  await live();
  await taken(second).waitFor();
  await second.getByRole('button', { name: 'Resume here' }).click();
  await taken(page).waitFor();
  await second.close();
  await live();
  assert.equal(await taken(page).isVisible(), false);
});

test('windows that do not hear of each other do not fight either', async () => {
  await open();
  const other = await browser.newContext({ storageState: await context.storageState() });
  const second = await newPage(other);
  await second.goto(url);
  await taken(page).waitFor();
  await live(second);
  await sleep(4000); // longer than any retry after a loss
  assert.deepEqual([await taken(page).isVisible(), await taken(second).isVisible()], [true, false]);
  assert.equal(await isLive('Clock', second), true);
  await other.close();
});

test('the large view by keyboard alone', async () => {
  await open();
  const focused = () => page.evaluate(() => document.activeElement.textContent.trim());
  await waitUntil(async () => (await page.keyboard.press('Tab'), (await focused()) === 'Clock'), 'the focus on Clock');
  await page.keyboard.press('Enter');
  await heading('Clock');
  await page.locator('.single-view .state', { hasText: 'Live · 640 × 360' }).waitFor();
  await streamed(clock);
  for (const [key, name] of [['ArrowRight', 'Street'], ['ArrowLeft', 'Clock'], ['Escape', 'Cameras']]) {
    await page.keyboard.press(key);
    await heading(name);
  }
  assert.equal(await focused(), 'Clock');
  await live();
  assert.deepEqual(errors, []);
});

for (const colorScheme of ['light', 'dark']) {
  test(`no accessibility faults, and a phone scrolls nothing sideways, ${colorScheme}`, async () => {
    await page.emulateMedia({ colorScheme, reducedMotion: 'reduce' }); // half-faded text has no contrast
    await logIn('wrong');
    await page.getByText('The name or the password is wrong.').waitFor();
    const red = await page.evaluate(() => Number(getComputedStyle(document.body).backgroundColor.match(/\d+/)[0]));
    assert.equal(red > 128, colorScheme === 'light');
    for (const [name, reach] of [
      ['log-in', async () => {}],
      ['grid', () => open().then(() => shows('Garage', 'No picture'))],
      ['large view', () => page.getByRole('link', { name: 'Clock' }).click()
        .then(() => page.locator('.single-view .badge').waitFor())],
      ['unknown camera', () => page.goto(`${url}/#/camera/999999`)],
    ]) {
      await reach();
      assert.deepEqual(await accessibilityFaults(page), [], name);
      assert.equal(await page.getByRole('heading', { level: 1 }).count(), 1, name);
      assert.equal(await page.getByRole('main').count(), 1, name);
      await page.setViewportSize({ width: 360, height: 740 });
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true, name);
      await page.setViewportSize(DESKTOP);
    }
  });
}

test('parts of a stream are put together however the network cuts them', async () => {
  await page.goto(url);
  const problems = await page.evaluate(async () => {
    const { MultipartReader } = await import('/js/multipart.js');
    const bytes = (text) => Uint8Array.from(text, (char) => char.charCodeAt(0));
    const part = (body) => `--b\r\nContent-Type: image/jpeg\r\nContent-Length: ${body.length}\r\n\r\n${body}\r\n`;
    const bodies = ['\xff\xd8one', '\r\n\r\n--b\r\nContent-Length: 3\r\n\r\n', 'x'.repeat(20000), '', 'last'];
    const stream = bytes(bodies.map(part).join(''));
    const found = [];
    for (const size of [1, 2, 3, 7, 64, 8192, 9000, stream.length]) {
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
