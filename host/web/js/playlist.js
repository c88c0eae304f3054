// The recorder's live playlists, read where no player does it.
import { ApiError, NO_SERVER, UNREACHABLE, refusalToWatch, unwrap } from './api.js';
import { sentence } from './sentence.js';

const TIMEOUT_MS = 10000;
const LONGEST_REASON = 400;
const COMES_YET = new Set([100, 400, 403, 404]); // a stream that is just being started is refused so

// { newest: number of the last slice, target: longest slice in seconds }, or null while there is none. Rejects with an
// ApiError.
export async function readPlaylist(url) {
  let response, text;
  try {
    response = await fetch(url, { cache: 'no-store', signal: AbortSignal.timeout(TIMEOUT_MS) });
    text = await response.text();
  } catch {
    throw new ApiError(UNREACHABLE);
  }
  if (response.status === NO_SERVER) throw withoutServer(response, text);
  return text.trimStart().startsWith('{') ? noPlaylist(text) : parsePlaylist(text);
}

// The host says in a line which server it did not get an answer from, and why; a proxy in front of it may say anything.
function withoutServer(response, text) {
  const plain = response.headers.get('content-type')?.startsWith('text/plain') && text.length < LONGEST_REASON;
  return new ApiError(NO_SERVER, (plain && sentence(text)) || undefined);
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
