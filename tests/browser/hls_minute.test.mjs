// A minute of H.264 on the page, from the first picture on, without a stop.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Stage, waitUntil } from './support.mjs';

const SIZES = [[640, 360, 10], [1280, 720, 25]];
const cameras = [];
const stage = new Stage(async (site) => {
  for (const [width, height, fps] of SIZES) {
    cameras.push(await site.do('camera', `At ${fps}`, 'h264', `test:${width}x${height}`, { fps }));
  }
});

for (const [index, [width, height, fps]] of SIZES.entries()) {
  test(`a minute of ${width}x${height} at ${fps} pictures a second`, async () => {
    const { page } = stage;
    await stage.logIn(`#/camera/${cameras[index]}`);
    const state = page.locator('.single-view .state');
    await waitUntil(async () => (await state.textContent()).startsWith('Live'), 'the picture');
    const look = () => page.evaluate(() => {
      const video = document.querySelector('video');
      globalThis.stops ??= [];
      video.onwaiting ??= () => globalThis.stops.push(video.currentTime);
      const { currentTime, videoWidth, videoHeight } = video;
      return { currentTime, videoWidth, videoHeight, frames: video.getVideoPlaybackQuality().totalVideoFrames, stops: globalThis.stops };
    });
    const first = await look();
    await sleep(60000);
    const last = await look();
    assert.deepEqual(last.stops, []);
    assert.deepEqual([last.videoWidth, last.videoHeight], [width, height]);
    const played = last.currentTime - first.currentTime;
    assert.ok(played > 58 && played < 64, `played ${played} s in 60`); // it may play up to 1.1 times as fast to catch up
    const rate = (last.frames - first.frames) / played;
    assert.ok(Math.abs(rate - fps) < 0.5, `${rate} pictures a second`);
    assert.match(await state.textContent(), /^Live · .* · [2-8] s behind$/);
  });
}
