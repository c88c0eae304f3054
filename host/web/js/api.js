// Calls of the web API: data or an ApiError whose message is a sentence for the person at the screen.

const ENTRY = '/webapi/entry.cgi';
const TIMEOUT_MS = 10000;

export const WRONG_PASSWORD = 410;
export const SESSION_ENDED = 105;
export const UNREACHABLE = 0; // no answer at all
export const NO_SERVER = 502; // none from the camera's recording server

const SENTENCES = {
  [UNREACHABLE]: 'The recorder cannot be reached.',
  100: 'The recorder could not start the stream.',
  101: 'The recorder did not understand the request.',
  102: 'The recorder does not know this function.',
  103: 'The recorder does not know this function.',
  104: 'The recorder is of another version than this page. Please reload it.',
  [SESSION_ENDED]: 'Your session has ended. Please log in again.',
  106: 'A part of the recorder could not be loaded.',
  107: 'The recorder’s records cannot be read.',
  117: 'The recorder had an internal error.',
  400: 'The camera’s live stream cannot be read.',
  401: 'The recorder does not know this camera.',
  402: 'The camera is disabled.',
  403: 'The camera is not connected.',
  404: 'The camera is still being set up.',
  405: 'The camera was removed.',
  [WRONG_PASSWORD]: 'The name or the password is wrong.',
  411: 'Too many failed attempts. Please try again in a minute.',
  413: 'The request is too large.',
  [NO_SERVER]: 'The camera’s recording server does not answer.',
};

export class ApiError extends Error {
  // `detail`: the recorder's own words, '' when it gave none.
  constructor(code, sentence = SENTENCES[code] ?? `The recorder answered with error ${code}.`, detail = '') {
    super(sentence);
    this.name = 'ApiError';
    this.code = code;
    this.detail = detail;
  }
}

export function url(api, method, params = {}) {
  return `${ENTRY}?${new URLSearchParams({ api, method, version: 1, ...params })}`;
}

// Turns an answer's JSON into its data; throws the ApiError that it carries.
export function unwrap(answer) {
  if (answer?.success) return answer.data;
  const { code = 117, data } = answer?.error ?? {};
  throw new ApiError(code, undefined, typeof data === 'string' ? data : '');
}

// A refusal to show a camera, in words. Without the right to watch it is the same code as without a session; that the
// session has ended is for the list of cameras to find out.
export function refusalToWatch(error) {
  return error.code === SESSION_ENDED ? new ApiError(SESSION_ENDED, 'You may not watch this camera.') : error;
}

// Form values go in the body, so that a password never stands in a URL. `keepalive`: arrives even when the page goes.
export async function post(api, method, params = {}, { timeoutMs = TIMEOUT_MS, keepalive = false } = {}) {
  const body = new URLSearchParams({ api, method, version: 1, ...params });
  const signal = AbortSignal.timeout(timeoutMs);
  let response;
  try {
    response = await fetch(ENTRY, { method: 'POST', body, cache: 'no-store', signal, keepalive });
    if (!response.ok) throw new ApiError(response.status, `The recorder’s web server answered ${response.status}.`);
    return unwrap(await response.json());
  } catch (error) {
    if (error instanceof ApiError) throw error;
    throw new ApiError(error instanceof SyntaxError ? 117 : UNREACHABLE);
  }
}

// The last word of a page that goes away; nobody hears the answer.
export function postLast(api, method, params = {}) {
  navigator.sendBeacon(ENTRY, new URLSearchParams({ api, method, version: 1, ...params }));
}
