// Words for camera types and states.
#include "records/camera_names.h"

#include "shm/ring_writer.h"
#include "velm/camera.h"

namespace oculora {

const char* VideoTypeName(int videoType) {
  switch (videoType) {
    case VIDEO_TYPE_MJPEG:
      return "mjpeg";
    case VIDEO_TYPE_MPEG4:
      return "mpeg4";
    case VIDEO_TYPE_H264:
    case VIDEO_TYPE_H264_PLUS:
      return "h264";
    case VIDEO_TYPE_MXPEG:
      return "mxpeg";
    default:
      return "?";
  }
}

const char* StateName(SourceState state) {
  switch (state) {
    case SourceState::kIdle:
      return "idle";
    case SourceState::kConnecting:
      return "connecting";
    case SourceState::kStreaming:
      return "streaming";
    case SourceState::kFailed:
      break;
  }
  return "failed";
}

}  // namespace oculora
