// Addresses within the page: "#/" the grid, "#/page/2" its second page, "#/camera/5" the large view of camera 5,
// "#/recordings" the recordings and "#/recording/57" one of them, both perhaps with a filter ("?camera=5").
import { filterQuery, parseFilter } from './recordings/filter.js';

export const cameraHash = (id) => `#/camera/${id}`;
export const pageHash = (page) => (page > 1 ? `#/page/${page}` : '#/');
export const recordingsHash = (filter) => `#/recordings${filterQuery(filter)}`;
export const recordingHash = (id, filter) => `#/recording/${id}${filterQuery(filter)}`;

export function parseRoute(hash) {
  const [, name, id, query] = /^#\/(camera|page|recordings|recording)(?:\/(\d{1,9}))?(\?.*)?$/.exec(hash) ?? [];
  if (name === 'recordings' && !id) return { name, filter: parseFilter(query) };
  if (name === 'recording' && id) return { name, id: Number(id), filter: parseFilter(query) };
  if (name === 'camera' && id) return { name, id: Number(id) };
  return { name: 'grid', page: name === 'page' ? Math.max(1, Number(id ?? 1)) : 1 };
}
