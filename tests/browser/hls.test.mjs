// H.264 cameras on the page: real cameras, the real remux behind them, a real Chromium in front.
import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Site, accessibilityFaults, difference, isLive, launch, logIn, shoot, tileOf, untilLive, waitUntil,
} from './support.mjs';

const NAME = 'anna';
const PASSWORD = 'correct horse battery';
const STATE = /^Live · 640 × 360 · (9|1\d) fps · [1-9] s behind$/;

let site;
let url;
let browser;
let yard; // camera ids
let gate;
let context;
let page;
let errors;

before(async () => {
  site = new Site();
  await site.do('user', NAME, PASSWORD);
  yard = await site.do('camera', 'Yard', 'h264', 'test:640x360', { fps: 10 });
  gate = await site.do('camera', 'Gate', 'h264', 'test:640x360', { fps: 10 });
  await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
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

// A page left by its own ending closes what it opened.
afterEach(async () => {
  await leave(page);
  await users(yard, 0); // before the context ends, and with it a Close that is still under way
  await context.close();
});

async function newPage(where) {
  const fresh = await where.newPage();
  fresh.setDefaultTimeout(20000);
  errors = [];
  fresh.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
  fresh.on('pageerror', (error) => errors.push(String(error)));
  return fresh;
}

async function leave(where) {
  if (where.isClosed()) return;
  const closed = where.waitForEvent('close');
  await where.close({ runBeforeUnload: true });
  await closed;
}

const enter = (where = page) => logIn(where, url, NAME, PASSWORD);
const users = (camera, count) =>
  waitUntil(async () => ((await site.remux(camera))?.users ?? 0) === count, `${count} users of camera ${camera}`);
const largeIsLive = (where) =>
  waitUntil(async () => STATE.test(await where.locator('.single-view .state').textContent()), 'the large picture', 40);

test('several play at once, move, and say how far behind they are', async () => {
  await enter();
  const scratch = await context.newPage();
  await page.bringToFront();
  for (const name of ['Yard', 'Gate', 'Clock']) await untilLive(page, name);
  for (const name of ['Yard', 'Gate']) {
    const state = tileOf(page, name).locator('.state');
    await waitUntil(async () => STATE.test(await state.textContent()), `${name}'s delay`);
    const picture = tileOf(page, name).getByRole('img', { name: `Live picture of ${name}` });
    const first = await shoot(page, picture);
    await sleep(2000); // so far apart must the two pictures be
    assert.ok((await difference(scratch, first, await shoot(page, picture))) > 0.002, `${name} stands still`);
    assert.ok((await difference(scratch, first, await black(scratch, first))) > 0.3, `${name} is black`);
  }
  assert.deepEqual(await accessibilityFaults(page), []);
  await page.setViewportSize({ width: 360, height: 740 });
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true);
  await users(yard, 1);
  await users(gate, 1);
  await page.getByRole('button', { name: 'Log out' }).click();
  await page.getByText('You are logged out.').waitFor();
  await users(yard, 0);
  await users(gate, 0);
  assert.deepEqual(errors, []);
});

// A black PNG as large as another.
const black = (scratch, png) => scratch.evaluate(async (text) => {
  const bytes = Uint8Array.from(atob(text), (char) => char.charCodeAt(0));
  const { width, height } = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
  const canvas = Object.assign(document.createElement('canvas'), { width, height });
  canvas.getContext('2d', { alpha: false });
  return canvas.toDataURL('image/png').split(',')[1];
}, png.toString('base64')).then((text) => Buffer.from(text, 'base64'));

test('windows of one session play side by side, one user each, and the change of views keeps the stream', async () => {
  await enter();
  await untilLive(page, 'Yard');
  const { pid } = await site.remux(yard);
  await tileOf(page, 'Yard').getByRole('link').click();
  await largeIsLive(page);
  const second = await context.newPage();
  await second.goto(`${url}/#/camera/${yard}`);
  await largeIsLive(second);
  await largeIsLive(page);
  assert.deepEqual(await site.remux(yard), { pid, users: 2 });
  assert.equal(await page.getByText('taken over').count(), 0);
  await leave(second);
  await users(yard, 1);
  await largeIsLive(page);
  await users(gate, 0); // which only the grid showed
});

test('a remux that dies is missed by all its viewers and replaced once', async () => {
  await enter();
  await untilLive(page, 'Yard');
  const other = await browser.newContext({ storageState: await context.storageState() });
  const second = await newPage(other);
  await page.goto(`${url}/#/camera/${yard}`);
  await second.goto(`${url}/#/camera/${yard}`);
  await Promise.all([largeIsLive(page), largeIsLive(second)]);
  const { pid } = await site.remux(yard);
  await site.do('kill', pid);
  await page.getByText('The stream has stopped. Trying again.').waitFor();
  const renewed = await waitUntil(async () => {
    const remux = await site.remux(yard);
    return remux?.pid !== pid && remux?.users === 2 && remux;
  }, 'both viewers at another remux', 40);
  await Promise.all([largeIsLive(page), largeIsLive(second)]);
  assert.deepEqual(await site.remux(yard), renewed);
  await leave(second);
  await users(yard, 1);
  await largeIsLive(page);
  await other.close();
});

test('a camera that is switched off says so, and plays when it is on again', async () => {
  await enter();
  await untilLive(page, 'Gate');
  await site.do('oculora', 'camera', 'disable', String(gate));
  await tileOf(page, 'Gate').getByText('Switched off by an administrator.').waitFor();
  assert.equal(await isLive(page, 'Yard'), true);
  await site.do('oculora', 'camera', 'enable', String(gate));
  await untilLive(page, 'Gate', 40);
});

test('without hls.js there is a preview that says what is missing', async () => {
  await page.route('**/vendor/hls.mjs', (route) => route.fulfill({ status: 404 }));
  await enter();
  await tileOf(page, 'Yard').getByText('key frames only. The player for H.264 (hls.js) is not installed on the recorder.').waitFor();
  for (const name of ['Yard', 'Gate', 'Clock']) await untilLive(page, name);
  assert.equal(await page.getByRole('button', { name: 'Preview' }).count(), 0);
  assert.equal(await site.remux(yard), null);
});
