// Cameras as the web API shows them.
#include "records/camera_json.h"

#include "records/camera_names.h"
#include "records/event_names.h"
#include "shm/ring_writer.h"
#include "velm/admission.h"

namespace oculora {
namespace {

struct Condition {
  const char* state;
  std::string reason;
};

// The ring that live viewers read.
RingId LiveRing(const CameraRecord& camera) { return {camera.id, camera.MobileProfile().streamNo, RingKind::kVideo}; }

Condition ConditionOf(const CameraRecord& camera, bool recorderRuns) {
  if (!camera.enabled) return {"disabled", "switched off by an administrator"};
  if (camera.ownerNdId != 0) return {"idle", ""};
  if (!recorderRuns) return {"off", "the recorder is not running"};
  RingStatus status;
  if (!ReadRingStatus(LiveRing(camera), status)) return {"connecting", "being started"};
  return {StateName(status.state), status.state == SourceState::kFailed ? status.reason : std::string()};
}

}  // namespace

CameraDescriber::CameraDescriber(Database& records) : m_RecorderRuns(IsQmRunning()) {
  for (CameraRecording& state : EventTable(records).ListCameraStates()) {
    m_Recordings.emplace(state.camId, std::move(state));
  }
}

Json::Value CameraDescriber::Describe(const CameraRecord& camera) const {
  const Condition condition = ConditionOf(camera, m_RecorderRuns);
  Json::Value item;
  item["id"] = camera.id;
  item["name"] = camera.name;
  item["type"] = VideoTypeName(camera.videoType);
  item["enabled"] = camera.enabled;
  item["state"] = condition.state;
  item["reason"] = condition.reason;
  item["recording"] = DescribeRecording(camera);
  return item;
}

// What was noted last counts only while somebody records.
Json::Value CameraDescriber::DescribeRecording(const CameraRecord& camera) const {
  const auto noted = m_Recordings.find(camera.id);
  const bool known = m_RecorderRuns && noted != m_Recordings.end();
  Json::Value item;
  item["mode"] = camera.recordSeconds > 0 ? "continuous" : "off";
  item["state"] = StateName(known ? noted->second.state : RecordingState::kOff);
  item["reason"] = known ? noted->second.reason : "";
  return item;
}

}  // namespace oculora
