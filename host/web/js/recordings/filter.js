// Which recordings are listed: a camera, a day, a time of that day; in addresses and as times. Pure.

const DAY = /^\d{4}-\d\d-\d\d$/;
const TIME = /^\d\d:\d\d$/;
const LONGEST = 3600; // seconds by which a recording may begin before the time asked for and still reach into it

export const NO_FILTER = { camera: 0, day: '', from: '', to: '' };

export function parseFilter(query) {
  const values = new URLSearchParams(query);
  const matching = (name, pattern) => (pattern.test(values.get(name)) ? values.get(name) : '');
  const day = matching('day', DAY);
  const camera = Number(matching('camera', /^\d{1,9}$/));
  return { camera, day, from: day && matching('from', TIME), to: day && matching('to', TIME) };
}

// "?camera=5&day=2026-02-03", or '' for everything.
export function filterQuery(filter) {
  const values = new URLSearchParams(Object.entries(filter).filter(([, value]) => value));
  return values.size > 0 ? `?${values}`.replaceAll('%3A', ':') : '';
}

// What to ask the recorder for, in seconds since 1970, and `since`: what ended before (in ms) is not meant. A time that
// ends before it begins reaches into the next day.
export function rangeOf({ camera, day, from, to }) {
  if (!day) return { cameraId: camera, from: 0, to: 0, since: 0 };
  const begin = new Date(`${day}T${from || '00:00'}`);
  const end = new Date(`${day}T${to || '00:00'}`);
  if (end <= begin) end.setDate(end.getDate() + 1);
  const [first, last] = [begin, end].map((date) => Math.floor(date.getTime() / 1000));
  return { cameraId: camera, from: from ? first - LONGEST : first, to: last, since: from ? first * 1000 : 0 };
}
