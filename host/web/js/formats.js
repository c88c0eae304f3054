// How a camera's live picture is shown, by the camera's type. New formats start here.
import { HlsPlayer } from './hls_player.js';
import { MjpegPlayer } from './mjpeg_player.js';

const TYPE_NAMES = { mjpeg: 'MJPEG', h264: 'H.264', mxpeg: 'MxPEG', mpeg4: 'MPEG-4' };

// `exclusive`: of the windows of one session only one may show it. `opening`: what is said before the first picture.
const FORMATS = {
  mjpeg: { Player: MjpegPlayer, exclusive: true, opening: 'Connecting' },
  h264: { Player: HlsPlayer, exclusive: false, opening: 'Starting the stream …' },
};
const NONE = Object.fromEntries(Object.entries(TYPE_NAMES).map(
  ([type, name]) => [type, { note: `Live picture for ${name} cameras comes with a later version.` }]));

export const typeName = (camera) => TYPE_NAMES[camera.type] ?? camera.type;

// { Player, exclusive, opening }, or { note } when there is none yet. The same object for the same type.
export const formatOf = (camera) => FORMATS[camera.type] ?? NONE[camera.type] ?? NONE.mpeg4;
