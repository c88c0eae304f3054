// A central host: cameras and recordings of a recording server beside its own, also when that server stops and returns.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { after, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Site, Stage, isLive, untilLive, waitUntil } from './support.mjs';

const SECRET = 'one-secret-of-both-hosts';
let garage; // the recording server
const stage = new Stage(async (site) => {
  garage = new Site();
  const importFilm = async (where, camera, name, ...codec) => {
    const film = `/var/packages/Oculora/var/${name}`;
    execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=size=640x360:rate=10', '-t', '30',
      '-pix_fmt', 'yuvj420p', '-c:v', ...codec, await where.do('path', film)]);
    await where.do('oculora', 'event', 'import', camera, film);
  };
  const door = await garage.do('camera', 'Door', 'mjpeg', 'test:640x360', { fps: 10 });
  const yard = await garage.do('camera', 'Yard', 'h264', 'test:640x360', { fps: 10 });
  await importFilm(garage, door, 'film.avi', 'mjpeg');
  await importFilm(garage, yard, 'film.mp4', 'libx264', '-g', '20', '-pix_fmt', 'yuv420p');
  await garage.do('oculora', 'server', 'accept', '--secret', SECRET);
  await importFilm(site, await site.do('camera', 'Clock', 'mjpeg', 'test:640x360', { fps: 10 }), 'film.avi', 'mjpeg');
  await site.do('oculora', 'server', 'add', 'Garage', '--id', 7, '--url', await garage.do('serve'), '--secret', SECRET);
  await site.do('oculora', 'server', 'sync', '7');
});
stage.beforeClose = () => garage.do('serve');
after(() => garage?.close());

const live = (...names) => Promise.all(names.map((name) => untilLive(stage.page, name, 40)));
const press = (name) => stage.page.getByRole('button', { name }).click();
const cards = async () => (await stage.page.locator('.event .camera').allTextContents()).sort().join();
const listed = (wanted) => waitUntil(async () => (await cards()) === wanted, `recordings of ${wanted}`);
const frame = async () => Number(/^Frame (\d+) of/.exec(await stage.page.locator('.frame').textContent())?.[1] ?? 0);

// What the page's console says beside the answers of HTTP that are no success.
const complaints = () => stage.errors.filter((text) => !text.startsWith('Failed to load resource'));

test('cameras of a recording server move, say why they cannot, and come back by themselves', async () => {
  const { page } = stage;
  await stage.logIn();
  await live('Clock', 'Door', 'Yard');
  for (const name of ['Door', 'Yard']) await stage.moves(name);
  assert.deepEqual(await page.locator('.tile .server .text').allTextContents(), ['', 'Garage', 'Garage']);
  await page.locator('.servers', { hasText: /Garage\s+up/ }).waitFor();

  await garage.do('stop');
  for (const name of ['Door', 'Yard']) {
    await stage.shows(name, /Server down/);
    assert.match(await stage.tile(name).locator('.overlay').innerText(), /Garage is down\s+Cannot be reached/);
  }
  assert.match(await page.locator('.servers').innerText(), /Garage\s+down\s+Cannot be reached/);
  await stage.isWellMade('a server is down');
  const asked = [];
  page.on('request', (request) => asked.push(request.postData() ?? request.url()));
  await sleep(6000);
  assert.deepEqual(asked.filter((text) => /VideoStreaming/.test(text)), [], 'tried although the server is down');
  assert.equal(await isLive(page, 'Clock'), true);

  await garage.do('serve');
  await live('Door', 'Yard');
  await stage.moves('Door');
  assert.deepEqual(complaints(), []);
});

test('recordings of both hosts stand in one list and play as file and by frames', async () => {
  const { page } = stage;
  await stage.logIn('#/recordings');
  await listed('Clock,Door,Yard');
  await garage.do('stop');
  await page.getByText(/^Recordings of Garage are missing: cannot be reached/).waitFor();
  await listed('Clock');
  await stage.isWellMade('recordings are missing');
  await garage.do('serve');
  await press('Try again');
  await listed('Clock,Door,Yard');
  await page.getByLabel('Camera').selectOption('Yard – Garage');
  await listed('Yard');
  await page.locator('.event').getByRole('link').click();
  await waitUntil(() => page.locator('video').evaluate(({ currentTime }) => currentTime > 2), 'the video to play');
  await press('Frame by frame');
  await waitUntil(async () => (await frame()) > 22, 'the same place, frame by frame');
  await page.getByText('Normal speed only').waitFor();
  assert.equal(await page.getByRole('group', { name: 'Speed' }).count(), 0);
  await stage.isWellMade('a remote recording');
  assert.deepEqual(complaints(), []);
});
