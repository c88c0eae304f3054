// Which format a camera's live picture is shown in. New formats start here.
import { url } from './api.js';

const TYPE_NAMES = { mjpeg: 'MJPEG', h264: 'H.264', mxpeg: 'MxPEG', mpeg4: 'MPEG-4' };

export const typeName = (camera) => TYPE_NAMES[camera.type] ?? camera.type;

// { url } of a multipart stream, `view` being the view instance it belongs to, or { note } when there is none yet.
export function formatOf(camera, view) {
  if (camera.type === 'mjpeg') {
    const params = { cameraId: camera.id, format: 'mjpeg', timestamp: view };
    return { url: url('VELM.Oculora.Stream.VideoStreaming', 'Stream', params) };
  }
  return { note: `Live picture for ${typeName(camera)} cameras comes with a later version.` };
}
