// A minute of H.264 on the page, from the first picture on, without a stop.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Site, launch, logIn, untilLive } from './support.mjs';

for (const [what, options, width, height] of [['640x360 at 10', { fps: 10 }, 640, 360], ['1280x720 at 25', { fps: 25 }, 1280, 720]]) {
  test(`a minute of ${what} pictures a second`, async () => {
    const site = new Site();
    const browser = await launch();
    try {
      await site.do('user', 'anna', 'correct horse battery');
      await site.do('camera', 'Yard', 'h264', `test:${width}x${height}`, options);
      const page = await browser.newPage();
      await logIn(page, await site.do('serve'), 'anna', 'correct horse battery');
      await untilLive(page, 'Yard');
      const look = () => page.evaluate(() => {
        const video = document.querySelector('video');
        globalThis.stops ??= [];
        video.onwaiting ??= () => globalThis.stops.push(video.currentTime);
        const { totalVideoFrames, droppedVideoFrames } = video.getVideoPlaybackQuality();
        const { currentTime, videoWidth, videoHeight } = video;
        const { stops } = globalThis;
        return { currentTime, videoWidth, videoHeight, totalVideoFrames, droppedVideoFrames, stops };
      });
      const first = await look();
      await sleep(60000);
      const last = await look();
      assert.deepEqual(last.stops, []);
      assert.deepEqual([last.videoWidth, last.videoHeight], [width, height]);
      const played = last.currentTime - first.currentTime;
      assert.ok(played > 58 && played < 64, `played ${played} s in 60`); // it may play up to 1.1 times as fast to catch up
      const rate = (last.totalVideoFrames - first.totalVideoFrames) / played;
      assert.ok(Math.abs(rate - options.fps) < 0.5, `${rate} pictures a second`);
      assert.match(await page.locator('.tile .state').textContent(), /^Live · .* · [2-8] s behind$/);
    } finally {
      await browser.close();
      await site.close();
    }
  });
}
