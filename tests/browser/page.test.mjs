// The page as a person meets it: Chromium on a site with real cameras.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Site, accessibilityFaults, difference, isLive as isLiveIn, launch, logIn as enter, shoot, tileOf, untilLive,
  waitUntil } from './support.mjs';

const NAME = 'anna';
const PASSWORD = 'correct horse battery';

let site;
let clock; // camera ids
let street;
let url;
let browser;
let context;
let page;
let errors; // what the page's console complained about

before(async () => {
  site = new Site();
  const film = '/var/packages/Oculora/var/street.avi';
  execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'mandelbrot=size=640x360:rate=10', '-t', '6',
    '-c:v', 'mjpeg', '-pix_fmt', 'yuvj420p', await site.do('path', film)]);
  await site.do('user', NAME, PASSWORD);
  clock = await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
  street = await site.do('camera', 'Street', 'mjpeg', film, { fps: 10 });
  await site.do('camera', 'Garage', 'mjpeg', 'http://127.0.0.1:1/', {});
  const cellar = await site.do('camera', 'Cellar', 'mjpeg', 'test:', {});
  await site.do('oculora', 'camera', 'disable', String(cellar));
  await site.do('camera', 'Door', 'mpeg4', 'test:', {});
  url = await site.do('serve');
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await site?.close();
});

beforeEach(async () => {
  context = await browser.newContext({ viewport: { width: 1280, height: 800 } });
  page = await newPage(context);
});

afterEach(() => context.close());

async function newPage(where) {
  const fresh = await where.newPage();
  fresh.setDefaultTimeout(20000);
  errors = [];
  fresh.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
  fresh.on('pageerror', (error) => errors.push(String(error)));
  return fresh;
}

const logIn = (where = page, password = PASSWORD) => enter(where, url, NAME, password);
const tile = (name, where = page) => tileOf(where, name);
const isLive = (name, where = page) => isLiveIn(where, name);
const live = (name, where = page) => untilLive(where, name);

describe('log-in', () => {
  test('a wrong password is answered with its reason', async () => {
    await logIn(page, 'wrong');
    const alert = page.getByRole('alert').filter({ hasText: 'The name or the password is wrong.' });
    await alert.waitFor();
    assert.equal(await page.getByLabel('Password').evaluate((input) => input === document.activeElement), true);
    assert.equal(await page.locator('.tile').count(), 0);
    assert.deepEqual(errors, []);
  });

  test('the right one opens the grid, and log-out ends the streams', async () => {
    await logIn();
    await page.getByRole('heading', { level: 1, name: 'Cameras' }).waitFor();
    await live('Clock');
    await live('Street');
    const streams = await site.streams();
    assert.ok(streams.has(clock) && streams.has(street));
    await page.getByRole('button', { name: 'Log out' }).click();
    await page.getByText('You are logged out.').waitFor();
    await waitUntil(async () => (await site.streams()).size === 0, 'the streams to end');
    await page.reload();
    await page.getByLabel('Password').waitFor();
    assert.deepEqual(errors, []);
  });

  test('a session that ended elsewhere leads back to the form with a sentence', async () => {
    await logIn();
    await live('Clock');
    await context.request.post(`${url}/webapi/entry.cgi`,
      { form: { api: 'VELM.Oculora.Account', method: 'Logout', version: '1' } });
    await page.getByText('Your session has ended. Please log in again.').waitFor();
  });
});

describe('the grid', () => {
  test('cameras move', async () => {
    await logIn();
    const scratch = await context.newPage();
    await page.bringToFront();
    for (const name of ['Clock', 'Street']) {
      await live(name);
      const canvas = tile(name).getByRole('img', { name: `Live picture of ${name}` });
      const first = await shoot(page, canvas);
      await sleep(2000); // so far apart must the two pictures be
      const share = await difference(scratch, first, await shoot(page, canvas));
      assert.ok(share > 0.002, `${name} stands still: ${share}`);
      assert.equal(await isLive(name), true);
    }
    assert.deepEqual(errors, []);
  });

  test('what shows no picture says why', async () => {
    await logIn();
    const cases = [
      ['Garage', 'No picture', /\brefused\b/i],
      ['Cellar', 'Disabled', /disabled|switched off/i],
      ['Door', 'MPEG-4', /comes with a later version/],
    ];
    for (const [name, state, reason] of cases) {
      if (name === 'Door') await page.getByRole('link', { name: 'Next' }).click();
      const where = tile(name);
      await waitUntil(async () => (await where.locator('.state').textContent()) === state, `${name} to be ${state}`);
      assert.match(await where.locator('.overlay').innerText(), reason);
      assert.equal(await where.locator('.badge').isVisible(), false);
    }
    assert.deepEqual(errors, []);
  });

  test('pages hold four cameras and only one page streams', async () => {
    await logIn();
    await live('Street');
    assert.equal(await page.locator('.tile').count(), 4);
    await page.getByRole('link', { name: 'Next' }).click();
    await tile('Door').waitFor();
    assert.equal(await page.locator('.tile').count(), 1);
    await waitUntil(async () => (await site.streams()).size === 0, 'the first page’s streams to end');
  });

  test('nothing streams while the page is hidden', async () => {
    await logIn();
    await live('Clock');
    const setHidden = (hidden) => page.evaluate((value) => {
      Object.defineProperty(document, 'hidden', { value, configurable: true });
      document.dispatchEvent(new Event('visibilitychange'));
    }, hidden);
    await setHidden(true);
    await waitUntil(async () => (await site.streams()).size === 0, 'the streams to end');
    await setHidden(false);
    await live('Clock');
    assert.deepEqual(errors, []);
  });

  test('a stream that breaks off comes back by itself', async () => {
    await logIn();
    await live('Clock');
    await live('Street');
    const victim = (await site.streams()).get(clock);
    await site.do('kill', victim);
    await waitUntil(async () => ((await site.streams()).get(clock) ?? victim) !== victim, 'another stream of Clock');
    await live('Clock');
    assert.equal(await isLive('Street'), true);
    assert.equal(await page.getByText('taken over').count(), 0);
  });

  test('without a network there is a banner until it is back', async () => {
    await logIn();
    await live('Clock');
    await context.setOffline(true);
    await page.getByText('The recorder cannot be reached.').waitFor();
    await context.setOffline(false);
    await page.locator('#notice').waitFor({ state: 'hidden' });
    await live('Clock');
  });
});

describe('several windows of one session', () => {
  const taken = (where) => where.getByText('This view was taken over by another window.');

  test('the newest shows the pictures; the older one resumes when asked or left alone', async () => {
    await logIn();
    await live('Clock');
    const second = await context.newPage();
    await second.goto(url);
    await live('Clock', second);
    await taken(page).waitFor();
    assert.equal(await isLive('Clock'), false);

    await page.getByRole('button', { name: 'Resume here' }).click();
    await live('Clock');
    await taken(second).waitFor();

    await second.getByRole('button', { name: 'Resume here' }).click();
    await taken(page).waitFor();
    await second.close();
    await live('Clock');
    assert.equal(await taken(page).isVisible(), false);
  });

  test('windows that do not hear of each other do not fight either', async () => {
    await logIn();
    await live('Clock');
    await live('Street');
    const other = await browser.newContext({ storageState: await context.storageState() });
    try {
      const second = await newPage(other);
      await second.goto(url);
      await taken(page).waitFor();
      await live('Clock', second);
      await live('Street', second);
      await sleep(4000); // longer than any retry after a loss
      assert.equal(await taken(page).isVisible(), true);
      assert.equal(await taken(second).isVisible(), false);
      assert.equal(await isLive('Clock', second), true);
    } finally {
      await other.close();
    }
  });
});

describe('for everybody', () => {
  test('the large view by keyboard alone', async () => {
    await logIn();
    await live('Clock');
    const focused = () => page.evaluate(() => document.activeElement.textContent.trim());
    await waitUntil(async () => (await page.keyboard.press('Tab'), (await focused()) === 'Clock'), 'the focus on Clock');
    await page.keyboard.press('Enter');
    const heading = (name) => page.getByRole('heading', { level: 1, name }).waitFor();
    await heading('Clock');
    const state = page.locator('.single-view .state');
    await waitUntil(async () => (await state.textContent()).startsWith('Live · 640 × 360'), 'the large picture');
    await waitUntil(async () => [...(await site.streams()).keys()].join() === String(clock), 'the grid’s streams to end');
    await page.keyboard.press('ArrowRight');
    await heading('Street');
    await page.keyboard.press('ArrowLeft');
    await heading('Clock');
    await page.keyboard.press('Escape');
    await heading('Cameras');
    assert.equal(await focused(), 'Clock');
    await live('Clock');
    assert.deepEqual(errors, []);
  });

  for (const colorScheme of ['light', 'dark']) {
    test(`no accessibility faults, ${colorScheme}`, async () => {
      await page.emulateMedia({ colorScheme, reducedMotion: 'reduce' }); // half-faded text has no contrast
      const ground = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor.match(/\d+/g).map(Number));
      await logIn(page, 'wrong');
      await page.getByText('The name or the password is wrong.').waitFor();
      assert.equal((await ground())[0] > 128, colorScheme === 'light');
      const screens = [
        ['log-in', async () => {}],
        ['grid', async () => {
          await logIn();
          await live('Clock');
          await waitUntil(async () => (await tile('Garage').locator('.state').textContent()) === 'No picture', 'Garage');
        }],
        ['large view', async () => {
          await page.getByRole('link', { name: 'Clock' }).click();
          await page.locator('.single-view .badge').waitFor();
        }],
        ['unknown camera', () => page.goto(`${url}/#/camera/999999`)],
      ];
      for (const [name, reach] of screens) {
        await reach();
        assert.deepEqual(await accessibilityFaults(page), [], name);
        assert.equal(await page.getByRole('heading', { level: 1 }).count(), 1, name);
        assert.equal(await page.getByRole('main').count(), 1, name);
      }
    });
  }

  test('a phone shows everything without scrolling sideways', async () => {
    await page.setViewportSize({ width: 360, height: 740 });
    await logIn();
    await live('Clock');
    for (const hash of ['#/', `#/camera/${clock}`]) {
      await page.goto(`${url}/${hash}`);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true, hash);
    }
  });
});

test('parts of a stream are put together however the network cuts them', async () => {
  await page.goto(url);
  const problems = await page.evaluate(async () => {
    const { MultipartReader } = await import('/js/multipart.js');
    const bytes = (text) => Uint8Array.from(text, (char) => char.charCodeAt(0));
    const part = (body) => `--b\r\nContent-Type: image/jpeg\r\nContent-Length: ${body.length}\r\n\r\n${body}\r\n`;
    const bodies = ['\xff\xd8one', '\r\n\r\n--b\r\nContent-Length: 3\r\n\r\n', 'x'.repeat(20000), ''];
    const stream = bytes(bodies.map(part).join('') + part('last'));
    const found = [];
    for (const size of [1, 2, 3, 7, 64, 8192, 9000, stream.length]) {
      const got = [];
      const reader = new MultipartReader((body) => got.push(String.fromCharCode(...body.subarray(0, 20000))));
      for (let at = 0; at < stream.length; at += size) reader.push(stream.subarray(at, at + size));
      if (JSON.stringify(got) !== JSON.stringify([...bodies.filter(Boolean), 'last'])) found.push(`cut to ${size}`);
    }
    for (const [what, text] of [
      ['no length', '--b\r\nContent-Type: image/jpeg\r\n\r\n'],
      ['huge', `--b\r\nContent-Length: ${2 ** 40}\r\n\r\n`],
      ['endless header', 'x'.repeat(40000)],
    ]) {
      try {
        new MultipartReader(() => {}).push(bytes(text));
        found.push(`${what}: not refused`);
      } catch { /* as it should be */ }
    }
    return found;
  });
  assert.deepEqual(problems, []);
});
