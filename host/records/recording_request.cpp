// Asking for a recording of a camera.
#include "records/recording_request.h"

#include <algorithm>

#include "records/events.h"
#include "velm/admission.h"

namespace oculora {
namespace {

constexpr int kErrFailed = 100;
constexpr int kErrBadSeconds = 101;
constexpr int kErrUnreadable = 107;
constexpr int kErrUnknownCamera = 401;
constexpr int kErrDisabled = 402;
constexpr int kErrNoRecorder = 404;
constexpr int kErrBeingRemoved = 405;

RecordingRefusal Check(Database& records, int camId, int seconds) {
  if (seconds < 1 || seconds > kMaxRecordSeconds) {
    return {kErrBadSeconds, "a recording takes 1 to " + std::to_string(kMaxRecordSeconds) + " seconds"};
  }
  const std::optional<CameraRecord> camera = records.LoadCamera(camId);
  if (records.IsUnreadable()) return {kErrUnreadable, records.LastError()};
  const std::string name = "camera " + std::to_string(camId);
  if (!camera) return {kErrUnknownCamera, "there is no " + name};
  if (camera->deleting) return {kErrBeingRemoved, name + " is being removed"};
  if (camera->ownerNdId != 0) return {kErrFailed, name + " belongs to another server, which records it"};
  if (!camera->enabled) return {kErrDisabled, name + " is switched off"};
  if (!IsQmRunning()) return {kErrNoRecorder, "the recorder is not running"};
  const std::vector<EventRecord> unfinished = EventTable(records).ListUnfinished(camId);
  const auto asked = std::count_if(unfinished.begin(), unfinished.end(), [](const EventRecord& event) {
    return event.cause == EventCause::kRequest && event.state != EventState::kDeleting;
  });
  if (asked >= kMaxRequestsAtOnce) {
    return {kErrFailed, name + " has " + std::to_string(asked) + " recordings going on; stop one of them first"};
  }
  return {};
}

}  // namespace

std::optional<int> RequestRecording(Database& records, int camId, int seconds, std::int64_t nowUs,
                                    RecordingRefusal& refusal) {
  refusal = Check(records, camId, seconds);
  if (refusal.code != 0) return std::nullopt;
  EventRecord event;
  event.camId = camId;
  event.cause = EventCause::kRequest;
  event.state = EventState::kRequested;
  event.startUs = nowUs;
  event.wantedUs = std::int64_t{seconds} * 1000000;
  const std::optional<int> id = EventTable(records).Add(event, nullptr);
  if (!id) refusal = {kErrUnreadable, records.LastError()};
  return id;
}

}  // namespace oculora
