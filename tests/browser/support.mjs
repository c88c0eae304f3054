// What the browser tests stand on: a site in a process of its own, Chromium, and a look at pixels.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, afterEach, before, beforeEach } from 'node:test';
import readline from 'node:readline';
import { fileURLToPath } from 'node:url';
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { chromium } from 'playwright-core';

const here = path.dirname(fileURLToPath(import.meta.url));

// Calls `condition` until it yields something true, and returns that.
export async function waitUntil(condition, what, seconds = 60) {
  const end = Date.now() + seconds * 1000;
  for (;;) {
    const result = await condition();
    if (result) return result;
    if (Date.now() > end) throw new Error(`waited ${seconds} s for ${what}`);
    await sleep(50);
  }
}

// A site that goes away with close(), or with this process.
export class Site {
  #process;
  #answers;

  constructor() {
    const support = path.join(here, '..', 'support');
    const env = { ...process.env, PYTHONPATH: support, PYTHONDONTWRITEBYTECODE: '1' };
    this.#process = spawn('python3', [path.join(here, 'site_server.py')], { env, stdio: ['pipe', 'pipe', 'inherit'] });
    this.#answers = readline.createInterface({ input: this.#process.stdout })[Symbol.asyncIterator]();
  }

  async do(...command) {
    this.#process.stdin.write(`${JSON.stringify(command)}\n`);
    const { value, done } = await this.#answers.next();
    if (done) throw new Error('the site has ended');
    const answer = JSON.parse(value);
    if ('error' in answer) throw new Error(`${command[0]}: ${answer.error}`);
    return answer.ok;
  }

  // Which cameras are streamed just now: a Map of camera id to process id.
  async streams() {
    return new Map(Object.entries(await this.do('streams')).map(([camera, pid]) => [Number(camera), pid]));
  }

  // { pid, users } of a camera's HLS stream, or null.
  remux(camera) {
    return this.do('remux', camera);
  }

  async close() {
    const ended = this.#process.exitCode === null ? once(this.#process, 'exit') : null;
    this.#process.stdin.end();
    await ended;
  }
}

function launch() {
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'],
  });
}

const NAME = 'anna';
const PASSWORD = 'correct horse battery';
const DESKTOP = { width: 1280, height: 800 };

// What a file's tests share: `site` as prepare(site) leaves it, served at `url`; and for each test a `context` with a
// `page`, whose console complains into `errors`.
export class Stage {
  errors = [];
  beforeClose = async () => {}; // a file's own ending of each test

  constructor(prepare) {
    before(async () => {
      this.site = new Site();
      await this.site.do('user', NAME, PASSWORD);
      await prepare(this.site);
      this.url = await this.site.do('serve');
      this.browser = await launch();
    });
    after(async () => {
      await this.browser?.close();
      await this.site?.close();
    });
    beforeEach(async () => {
      this.context = await this.browser.newContext({ viewport: DESKTOP, timezoneId: 'UTC' });
      this.page = await this.newPage();
      this.scratch = null;
    });
    afterEach(async () => {
      await this.beforeClose();
      await this.context.close();
    });
  }

  async newPage() {
    const page = await this.context.newPage();
    page.setDefaultTimeout(60000);
    this.errors = [];
    page.on('console', (message) => message.type() === 'error' && this.errors.push(message.text()));
    page.on('pageerror', (error) => this.errors.push(String(error)));
    return page;
  }

  // `place`: the address within the page.
  async logIn(place = '', password = PASSWORD) {
    await this.page.goto(`${this.url}/${place}`);
    await this.page.getByLabel('Name').fill(NAME);
    await this.page.getByLabel('Password').fill(password);
    await this.page.keyboard.press('Enter');
  }

  tile(name) {
    return tileOf(this.page, name);
  }

  // Waits until the words beside a camera's picture are like `pattern`.
  shows(name, pattern) {
    const state = this.tile(name).locator('.state');
    return waitUntil(async () => pattern.test(await state.textContent()), `${name} to be ${pattern}`);
  }

  async moves(name) {
    const picture = this.page.getByRole('img', { name: `Live picture of ${name}` });
    const first = await this.shoot(picture);
    await waitUntil(async () => (await this.difference(first, await this.shoot(picture))) > 0.002, `${name} to move`);
  }

  // What a person sees of a live picture, below its clock, as PNG.
  async shoot(picture) {
    const box = await picture.boundingBox();
    const top = Math.min(60, box.height / 3);
    return this.page.screenshot({ clip: { x: box.x, y: box.y + top, width: box.width, height: box.height - top } });
  }

  // The share of pixels, 0 to 1, in which two PNGs of one size differ plainly.
  async difference(first, second) {
    this.scratch ??= await this.context.newPage();
    await this.page.bringToFront();
    return this.scratch.evaluate(compare, [first.toString('base64'), second.toString('base64')]);
  }

  // The page as it stands has no accessibility faults, and a phone scrolls nothing sideways.
  async isWellMade(what) {
    assert.deepEqual(await accessibilityFaults(this.page), [], what);
    await this.page.setViewportSize({ width: 360, height: 740 });
    assert.equal(await this.page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true, what);
    await this.page.setViewportSize(DESKTOP);
  }

  // Kills the process that streams a camera, and waits for another.
  async killStream(camera) {
    const victim = (await this.site.streams()).get(camera);
    await this.site.do('kill', victim);
    const renewed = async () => ((await this.site.streams()).get(camera) ?? victim) !== victim;
    await waitUntil(renewed, `another stream of ${camera}`);
  }
}

export const tileOf = (page, name) => page.locator('.tile', { has: page.getByRole('link', { name, exact: true }) });
export const isLive = async (page, name) =>
  (await tileOf(page, name).locator('.state').textContent()).startsWith('Live');
export const untilLive = (page, name) => waitUntil(() => isLive(page, name), `a live picture of ${name}`);

async function compare(pngs) {
  const [a, b] = await Promise.all(pngs.map(async (png) => {
    const bytes = Uint8Array.from(atob(png), (char) => char.charCodeAt(0));
    const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
    const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
    context.drawImage(bitmap, 0, 0);
    return context.getImageData(0, 0, bitmap.width, bitmap.height).data;
  }));
  let differing = 0;
  for (let i = 0; i < a.length; i += 4) {
    const distance = Math.abs(a[i] - b[i]) + Math.abs(a[i + 1] - b[i + 1]) + Math.abs(a[i + 2] - b[i + 2]);
    if (distance > 60) differing += 1;
  }
  return differing / (a.length / 4);
}

const axe = await readFile(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

async function accessibilityFaults(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  return violations.flatMap(({ id, nodes }) => nodes.map((node) => `${id}: ${node.html}`));
}
