// How a camera's live picture is shown: by the camera's type, and by choice where there is one. New formats start here.
import { giveUpVideo, wantsPreview, whyNoVideo } from './choices.js';
import { HlsPlayer } from './hls_player.js';
import { MjpegPlayer, PreviewPlayer } from './mjpeg_player.js';
import { MxpegPlayer } from './mxpeg_player.js';

const TYPE_NAMES = { mjpeg: 'MJPEG', h264: 'H.264', mxpeg: 'MxPEG', mpeg4: 'MPEG-4' };

// `exclusive`: of the windows of one session only one may show it. `opening`: what is said before the first picture.
const PREVIEW = { Player: PreviewPlayer, exclusive: true, opening: 'Connecting' };
const FORMATS = {
  mjpeg: { Player: MjpegPlayer, exclusive: true, opening: 'Connecting' },
  h264: { Player: HlsPlayer, exclusive: false, opening: 'Starting the stream …', giveUp: giveUpVideo },
  mxpeg: { Player: MxpegPlayer, exclusive: true, opening: 'Connecting' },
  mpeg4: PREVIEW,
};
const UNKNOWN = { unknown: 'This page does not know this type of camera.' };

export const typeName = (camera) => TYPE_NAMES[camera.type] ?? camera.type;

// Whether the user may choose between video and preview.
export const hasChoice = (camera) => camera.type === 'h264' && !whyNoVideo(camera.id);

// { Player, exclusive, opening } and perhaps giveUp(camera id, why), after which the camera has another format; or
// { unknown } when there is none. The same object for the same format.
export function formatOf(camera) {
  if (camera.type === 'h264' && (wantsPreview(camera.id) || whyNoVideo(camera.id))) return PREVIEW;
  return FORMATS[camera.type] ?? UNKNOWN;
}
