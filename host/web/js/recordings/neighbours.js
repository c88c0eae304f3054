// The recordings of the same camera just before and just after one.
import { listEvents } from './calls.js';

const HOUR = 3600;
const TRIES = 40;

// { before, after }: events, null where there is none.
export async function neighboursOf(event) {
  const [before, after] = await Promise.all([findBefore(event), findAfter(event)]);
  return { before, after };
}

const seconds = (event) => Math.floor(event.start / 1000);
const placeOf = (event, events) => events.findIndex(({ id }) => id === event.id);

async function findBefore(event) {
  const range = { cameraId: event.cameraId, from: 0, to: seconds(event) + 1 };
  const { events } = await listEvents({ ...range, limit: 20 });
  const at = placeOf(event, events);
  return (at < 0 ? events.find(({ start }) => start < event.start) : events[at + 1]) ?? null;
}

// Lists begin with the newest, so the range is widened until there is one and narrowed until one page holds them all.
async function findAfter(event) {
  const now = Math.floor(Date.now() / 1000) + HOUR;
  let from = seconds(event);
  let to = from + HOUR;
  for (let tries = 0; tries < TRIES; tries += 1) {
    const { events, next } = await listEvents({ cameraId: event.cameraId, from, to, limit: 50 });
    const at = placeOf(event, events);
    const later = at < 0 ? events.filter(({ start }) => start > event.start) : events.slice(0, at);
    const middle = from + Math.floor((to - from) / 2);
    if (later.length > 0 && (!next || later.length < events.length || middle === from)) return later.at(-1);
    if (later.length > 0) {
      to = middle;
    } else {
      if (to > now) return null;
      const width = to - seconds(event);
      [from, to] = [to, to + 3 * width];
    }
  }
  return null;
}
