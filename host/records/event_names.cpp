// Words for what recorded events are.
#include "records/event_names.h"

#include "records/camera_names.h"

namespace oculora {

const char* CauseName(EventCause cause) {
  switch (cause) {
    case EventCause::kContinuous:
      return "continuous";
    case EventCause::kRequest:
      return "request";
    case EventCause::kImport:
      break;
  }
  return "import";
}

const char* StateName(EventState state) {
  switch (state) {
    case EventState::kReady:
      return "ready";
    case EventState::kRecording:
      return "recording";
    case EventState::kRequested:
      return "requested";
    case EventState::kDeleting:
      return "deleting";
    case EventState::kFailed:
      break;
  }
  return "failed";
}

const char* StateName(RecordingState state) {
  switch (state) {
    case RecordingState::kOff:
      return "off";
    case RecordingState::kRecording:
      return "recording";
    case RecordingState::kWaiting:
      return "waiting";
    case RecordingState::kFailed:
      break;
  }
  return "failed";
}

const char* PicturesName(int videoType) { return videoType == 0 ? "other" : VideoTypeName(videoType); }

std::string FileKind(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  return dot == std::string::npos ? std::string() : path.substr(dot + 1);
}

}  // namespace oculora
