// What the browser tests stand on: a site in a process of its own, Chromium, and a look at pixels.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import path from 'node:path';
import readline from 'node:readline';
import { fileURLToPath } from 'node:url';
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { chromium } from 'playwright-core';

const here = path.dirname(fileURLToPath(import.meta.url));

// Calls `condition` until it yields something true, and returns that.
export async function waitUntil(condition, what, seconds = 20) {
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

export function launch() {
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'],
  });
}

export async function logIn(page, url, name, password) {
  await page.goto(url);
  await page.getByLabel('Name').fill(name);
  await page.getByLabel('Password').fill(password);
  await page.keyboard.press('Enter');
}

export const tileOf = (page, name) => page.locator('.tile', { has: page.getByRole('link', { name, exact: true }) });
export const isLive = async (page, name) => (await tileOf(page, name).locator('.state').textContent()).startsWith('Live');
export const untilLive = (page, name, seconds) => waitUntil(() => isLive(page, name), `a live picture of ${name}`, seconds);

// Takes a picture of what a person sees of a live picture, below its clock, as PNG.
export async function shoot(page, canvas) {
  const box = await canvas.boundingBox();
  const top = Math.min(60, box.height / 3);
  return page.screenshot({ clip: { x: box.x, y: box.y + top, width: box.width, height: box.height - top } });
}

// The share of pixels, 0 to 1, in which two PNGs of one size differ plainly. `scratch`: any page that allows it.
export async function difference(scratch, first, second) {
  return scratch.evaluate(async (pngs) => {
    const pixels = await Promise.all(pngs.map(async (png) => {
      const bytes = Uint8Array.from(atob(png), (char) => char.charCodeAt(0));
      const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
      const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
      context.drawImage(bitmap, 0, 0);
      return context.getImageData(0, 0, bitmap.width, bitmap.height).data;
    }));
    const [a, b] = pixels;
    let differing = 0;
    for (let i = 0; i < a.length; i += 4) {
      const distance = Math.abs(a[i] - b[i]) + Math.abs(a[i + 1] - b[i + 1]) + Math.abs(a[i + 2] - b[i + 2]);
      if (distance > 60) differing += 1;
    }
    return differing / (a.length / 4);
  }, [first.toString('base64'), second.toString('base64')]);
}

const axe = await readFile(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

// What an accessibility checker finds wrong with the page as it stands: one line each.
export async function accessibilityFaults(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  return violations.flatMap(({ id, nodes }) => nodes.map((node) => `${id}: ${node.html}`));
}
