// Addresses within the page: "#/" the grid, "#/page/2" its second page, "#/camera/5" the large view of camera 5.

export const cameraHash = (id) => `#/camera/${id}`;
export const pageHash = (page) => (page > 1 ? `#/page/${page}` : '#/');

export function parseRoute(hash) {
  const match = /^#\/(camera|page)\/(\d{1,9})$/.exec(hash);
  if (match?.[1] === 'camera') return { name: 'camera', id: Number(match[2]) };
  return { name: 'grid', page: match ? Math.max(1, Number(match[2])) : 1 };
}
