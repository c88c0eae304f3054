// Takes MxPEG pictures apart, and makes JPEGs of those that are none. Pure: bytes in, bytes out.
//
// A key picture is a whole JPEG. A delta picture is only the scan of one, without tables and frame header: it codes the
// blocks of 16x16 pixels that have changed, which a mask in the comment "MXM" tells. Sound may follow either.

const SOI = [0xff, 0xd8];
const SOF0 = 0xc0, DHT = 0xc4, EOI = 0xd9, SOS = 0xda, DQT = 0xdb, DRI = 0xdd, APP13 = 0xed, COM = 0xfe;
const MASK_AT = 16; // in the comment: marker, length, "MXM\0", columns, rows, 4 bytes
const SOUND_AT = 16; // in its segment: marker, length, duration, time stamp
const WIDEST = 4095; // blocks; a JPEG has at most 65535 pixels a row

const big = (bytes, at) => (bytes[at] << 8) | bytes[at + 1];
const little = (bytes, at) => bytes[at] | (bytes[at + 1] << 8);
const isMask = (segment) => segment.length >= MASK_AT && String.fromCharCode(...segment.subarray(4, 7)) === 'MXM';

// { frame, tables, restarts, mask, scan, sound }: segments as they stand, null where there is none; `frame` only in key
// pictures, `scan` up to the end of the image, `sound` a list of A-law samples. null when it is no picture.
export function takeApart(bytes) {
  const found = { frame: null, tables: [], restarts: false, mask: null, scan: null, sound: [] };
  let at = 2;
  for (; bytes[at + 1] !== SOS; at += 2 + big(bytes, at + 2)) {
    if (bytes[at] !== 0xff || at + 4 > bytes.length) return null;
    const segment = bytes.subarray(at, at + 2 + big(bytes, at + 2));
    const marker = segment[1];
    if (marker === DQT || marker === DHT) found.tables.push(segment);
    else if (marker >= SOF0 && marker < SOF0 + 16) found.frame = segment;
    else if (marker === DRI) found.restarts = big(segment, 4) > 0;
    else if (marker === COM && isMask(segment)) found.mask = segment;
  }
  let end = endOfImage(bytes, at);
  found.scan = bytes.subarray(at, end);
  for (; bytes[end] === 0xff && bytes[end + 1] === APP13; end += 2 + big(bytes, end + 2)) {
    found.sound.push(bytes.subarray(end + SOUND_AT, end + 2 + big(bytes, end + 2)));
  }
  return found;
}

function endOfImage(bytes, from) {
  for (let at = from; (at = bytes.indexOf(0xff, at)) >= 0; at += 1) if (bytes[at + 1] === EOI) return at + 2;
  return bytes.length;
}

// Whether delta pictures can be shown that follow this key picture: baseline, three components, blocks of 16x16 pixels.
export function isPlain({ frame, restarts }) {
  return !restarts && frame[1] === SOF0 && frame[9] === 3 && frame[11] === 0x22 && frame[14] === 0x11 && frame[17] === 0x11;
}

// { pieces, runs }: a JPEG of the changed blocks side by side, and where they belong: `count` blocks from the strip's
// `from` on go to x, y (in pixels, all of them). null when the delta picture does not fit the key picture.
export function makeStrip({ mask, scan }, { frame, tables }) {
  if (!mask) return null;
  const columns = Math.ceil(big(frame, 7) / 16);
  const rows = Math.ceil(big(frame, 5) / 16);
  if (little(mask, 8) !== columns || little(mask, 10) !== rows || (mask.length - MASK_AT) * 8 < columns * rows) return null;
  const runs = [];
  let blocks = 0;
  for (let index = 0, run = null; index < columns * rows; index += 1) {
    const changed = mask[MASK_AT + (index >> 3)] & (0x80 >> (index & 7));
    const x = (index % columns) * 16;
    if (!changed || x === 0) run = null;
    if (!changed) continue;
    if (!run) runs.push((run = { from: blocks * 16, x, y: Math.floor(index / columns) * 16, width: 0 }));
    run.width += 16;
    blocks += 1;
  }
  if (blocks === 0 || blocks > WIDEST) return null;
  const header = frame.slice();
  header.set([0, 16, (blocks * 16) >> 8, (blocks * 16) & 0xff], 5);
  return { pieces: [Uint8Array.from(SOI), ...tables, header, scan], runs };
}
