// Video or preview: what the user chose for a camera, kept in this browser, and what this browser cannot play.

const KEY = 'oculora-preview'; // a list of camera ids
const noVideo = new Map(); // camera id: why its video cannot be played here
const previews = new Set(read());

// Dispatches 'change' when cameras are to be shown in another way.
export const choices = new EventTarget();

export const wantsPreview = (id) => previews.has(id);

export function wantPreview(id, wanted) {
  if (wanted) previews.add(id);
  else previews.delete(id);
  try {
    localStorage.setItem(KEY, JSON.stringify([...previews]));
  } catch { /* not kept, then */ }
  choices.dispatchEvent(new Event('change'));
}

// A sentence, or '' for a camera whose video can be played as far as is known.
export const whyNoVideo = (id) => noVideo.get(id) ?? '';

export function giveUpVideo(id, why) {
  noVideo.set(id, why);
  choices.dispatchEvent(new Event('change'));
}

function read() {
  try {
    const kept = JSON.parse(localStorage.getItem(KEY));
    return Array.isArray(kept) ? kept : [];
  } catch {
    return [];
  }
}
