// Addresses within the page: "#/" the grid, "#/page/2" its second page, "#/camera/5" the large view of camera 5,
// "#/recordings" the recordings and "#/recording/57" one of them, both perhaps with a filter ("?camera=5"). What names a
// recording is the recorder's business: here it is a text.
import { filterQuery, parseFilter } from './recordings/filter.js';

export const cameraHash = (id) => `#/camera/${id}`;
export const pageHash = (page) => (page > 1 ? `#/page/${page}` : '#/');
export const recordingsHash = (filter) => `#/recordings${filterQuery(filter)}`;
export const recordingHash = (id, filter) => `#/recording/${encodeURIComponent(id)}${filterQuery(filter)}`;

const RECORDING = /^#\/recording\/([\w%:-]{1,60})(\?.*)?$/;
const OTHERS = /^#\/(camera|page|recordings)(?:\/(\d{1,9}))?(\?.*)?$/;

export function parseRoute(hash) {
  const [, recording, filter] = RECORDING.exec(hash) ?? [];
  if (recording) return { name: 'recording', id: decoded(recording), filter: parseFilter(filter) };
  const [, name, id, query] = OTHERS.exec(hash) ?? [];
  if (name === 'recordings' && !id) return { name, filter: parseFilter(query) };
  if (name === 'camera' && id) return { name, id: Number(id) };
  return { name: 'grid', page: name === 'page' ? Math.max(1, Number(id ?? 1)) : 1 };
}

// A text that is no code stands for itself.
function decoded(text) {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}
