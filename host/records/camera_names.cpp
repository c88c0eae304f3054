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

int VideoTypeByName(const std::string& name) {
  if (name == "mjpeg") return VIDEO_TYPE_MJPEG;
  if (name == "mpeg4") return VIDEO_TYPE_MPEG4;
  if (name == "h264") return VIDEO_TYPE_H264;
  if (name == "mxpeg") return VIDEO_TYPE_MXPEG;
  return 0;
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
