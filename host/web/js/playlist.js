// The recorder's live playlists, read where no player does it.
import { ApiError, UNREACHABLE, refusalToWatch, unwrap } from './api.js';

const TIMEOUT_MS = 10000;
const COMES_YET = new Set([100, 400, 403, 404]); // a stream that is just being started is refused so

// { newest: number of the last slice, target: longest slice in seconds }, or null while there is none. Rejects with an
// ApiError.
export async function readPlaylist(url) {
  let text;
  try {
    const response = await fetch(url, { cache: 'no-store', signal: AbortSignal.timeout(TIMEOUT_MS) });
    text = await response.text();
  } catch {
    throw new ApiError(UNREACHABLE);
  }
  return text.trimStart().startsWith('{') ? noPlaylist(text) : parsePlaylist(text);
}

export function parsePlaylist(text) {
  const number = (tag, otherwise) => Number(new RegExp(`^#EXT-X-${tag}:(\\d+)`, 'm').exec(text)?.[1] ?? otherwise);
  const slices = text.match(/^#EXTINF:/gm)?.length ?? 0;
  if (!text.startsWith('#EXTM3U') || slices === 0) return null;
  return { newest: number('MEDIA-SEQUENCE', 0) + slices - 1, target: number('TARGETDURATION', 2) };
}

function noPlaylist(text) {
  try {
    unwrap(JSON.parse(text));
  } catch (error) {
    if (error instanceof ApiError && !COMES_YET.has(error.code)) throw refusalToWatch(error);
  }
  return null;
}
