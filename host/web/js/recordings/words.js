// Recordings in words and numbers. Pure.

const CAUSES = { continuous: 'Continuous', request: 'On request', import: 'Imported' };
const clockFormat = new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit', second: '2-digit' });
const dayFormat = new Intl.DateTimeFormat(undefined, { weekday: 'long', day: 'numeric', month: 'long', year: 'numeric' });
const dateFormat = new Intl.DateTimeFormat(undefined, { dateStyle: 'medium' });
const two = (number) => String(number).padStart(2, '0');

export const causeName = (event) => CAUSES[event.cause] ?? 'Recorded';
export const clock = (ms) => clockFormat.format(ms);

// "2026-02-03" in this browser's time zone, as date fields hold it.
export function dayOf(ms) {
  const date = new Date(ms);
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
}

// "2026-02-03 14-35-10", for names of files.
export function stamp(ms) {
  const date = new Date(ms);
  return `${dayOf(ms)} ${[date.getHours(), date.getMinutes(), date.getSeconds()].map(two).join('-')}`;
}

export function dayName(day) {
  const near = nearDay(day);
  const name = dayFormat.format(new Date(`${day}T12:00`));
  return near ? `${near}, ${name}` : name;
}

export const moment = (ms) => `${nearDay(dayOf(ms)) || dateFormat.format(ms)}, ${clock(ms)}`;

function nearDay(day) {
  const yesterday = new Date();
  yesterday.setDate(yesterday.getDate() - 1);
  return { [dayOf(Date.now())]: 'Today', [dayOf(yesterday)]: 'Yesterday' }[day] ?? '';
}

const parts = (ms) => {
  const seconds = Math.max(0, Math.floor(ms / 1000));
  return [Math.floor(seconds / 3600), Math.floor(seconds / 60) % 60, seconds % 60];
};

// "0:12", "1:02:03".
export function span(ms) {
  const [hours, minutes, seconds] = parts(ms);
  return hours > 0 ? `${hours}:${two(minutes)}:${two(seconds)}` : `${minutes}:${two(seconds)}`;
}

// "1 hour 2 minutes 3 seconds".
export function spanInWords(ms) {
  const units = ['hour', 'minute', 'second'];
  const words = parts(ms).map((count, index) => count > 0 && `${count} ${units[index]}${count === 1 ? '' : 's'}`);
  return words.filter(Boolean).join(' ') || '0 seconds';
}

export function size(bytes) {
  const units = ['kB', 'MB', 'GB', 'TB'];
  let value = bytes / 1000;
  let unit = 0;
  for (; value >= 999.5 && unit < units.length - 1; unit += 1) value /= 1000;
  return `${value >= 10 ? Math.round(value) : value.toFixed(1)} ${units[unit]}`;
}

// How long it is, what an event still being recorded has grown by since it was asked for included.
export const lengthNow = (event) =>
  event.state === 'recording' ? event.length + (performance.now() - event.receivedAt) : event.length;
