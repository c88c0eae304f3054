// A minute of H.264 on the page, from the first picture on, without a stop.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Stage, waitUntil } from './support.mjs';

const FPS = 25;
let yard; // camera id
const stage = new Stage(async (site) => {
  yard = await site.do('camera', 'Yard', 'h264', 'test:1280x720', { fps: FPS });
});

test('a minute plays without a stop, at its rate, and stays close behind', async () => {
  const { page } = stage;
  await stage.logIn(`#/camera/${yard}`);
  const state = page.locator('.single-view .state');
  await waitUntil(async () => (await state.textContent()).startsWith('Live'), 'the picture');
  const look = () => page.evaluate(() => {
    const video = document.querySelector('video');
    globalThis.stops ??= [];
    video.onwaiting ??= () => globalThis.stops.push(video.currentTime);
    const { currentTime, videoWidth } = video;
    const frames = video.getVideoPlaybackQuality().totalVideoFrames;
    return { currentTime, videoWidth, frames, stops: globalThis.stops };
  });
  const first = await look();
  await sleep(60000);
  const last = await look();
  assert.deepEqual([last.stops, last.videoWidth], [[], 1280]);
  const played = last.currentTime - first.currentTime;
  assert.ok(played > 58 && played < 64, `played ${played} s in 60`); // it may play up to 1.1 times as fast to catch up
  const rate = (last.frames - first.frames) / played;
  assert.ok(Math.abs(rate - FPS) < 0.5, `${rate} pictures a second`);
  assert.match(await state.textContent(), /^Live · .* · [2-8] s behind$/);
});
