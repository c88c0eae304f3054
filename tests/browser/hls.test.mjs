// H.264 cameras on the page: real cameras, the real remux behind them, a real Chromium in front.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Stage, tileOf, untilLive, waitUntil } from './support.mjs';

const STATE = /^Live · 640 × 360 · \d+ fps · [1-9]\d? s behind$/;
let yard, gate; // camera ids

const stage = new Stage(async (site) => {
  yard = await site.do('camera', 'Yard', 'h264', 'test:640x360', { fps: 10 });
  gate = await site.do('camera', 'Gate', 'h264', 'test:640x360', { fps: 10 });
  await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 });
});

// A page left by its own ending closes what it opened.
async function leave(page) {
  if (page.isClosed()) return;
  const closed = page.waitForEvent('close');
  await page.close({ runBeforeUnload: true });
  await closed;
}
stage.beforeClose = async () => {
  await leave(stage.page);
  await users(yard, 0); // before the context ends, and with it a Close that is still under way
};

const users = (camera, count) =>
  waitUntil(async () => ((await stage.site.remux(camera))?.users ?? 0) === count, `${count} users of camera ${camera}`);
const largeIsLive = (...pages) => Promise.all(pages.map((page) =>
  waitUntil(async () => STATE.test(await page.locator('.single-view .state').textContent()), 'the large picture')));

test('several play at once, move, and say how far behind they are', async () => {
  await stage.logIn();
  for (const name of ['Yard', 'Gate', 'Clock']) await untilLive(stage.page, name);
  for (const name of ['Yard', 'Gate']) {
    await stage.shows(name, STATE);
    await stage.moves(name);
  }
  await stage.isWellMade('H.264');
  await users(yard, 1);
  await users(gate, 1);
  await stage.page.getByRole('button', { name: 'Log out' }).click();
  await stage.page.getByText('You are logged out.').waitFor();
  await users(yard, 0);
  await users(gate, 0);
  assert.deepEqual(stage.errors, []);
});

test('windows of one session share a remux, one user each, and replace it once when it dies', async () => {
  const { page, site } = stage;
  await stage.logIn();
  await untilLive(page, 'Yard');
  const { pid } = await site.remux(yard);
  await stage.tile('Yard').getByRole('link').click();
  const second = await stage.newPage();
  await second.goto(`${stage.url}/#/camera/${yard}`);
  await largeIsLive(page, second);
  assert.deepEqual(await site.remux(yard), { pid, users: 2 });
  assert.equal(await page.getByText('taken over').count(), 0);
  await users(gate, 0); // which only the grid showed

  await site.do('kill', pid);
  await page.getByText('The stream has stopped. Trying again.').waitFor();
  const renewed = await waitUntil(async () => {
    const remux = await site.remux(yard);
    return remux?.pid !== pid && remux?.users === 2 && remux;
  }, 'both viewers at another remux');
  await largeIsLive(page, second);
  assert.deepEqual(await site.remux(yard), renewed);
  await leave(second);
  await users(yard, 1);
  await largeIsLive(page);
});

test('without hls.js there is a preview that says what is missing', async () => {
  const { page } = stage;
  await page.route('**/vendor/hls.mjs', (route) => route.fulfill({ status: 404 }));
  await stage.logIn();
  const why = 'key frames only. The player for H.264 (hls.js) is not installed on the recorder.';
  await tileOf(page, 'Yard').getByText(why).waitFor();
  for (const name of ['Yard', 'Gate', 'Clock']) await untilLive(page, name);
  assert.equal(await page.getByRole('button', { name: 'Preview' }).count(), 0);
  assert.equal(await stage.site.remux(yard), null);
});
