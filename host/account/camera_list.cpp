// The list of cameras as a viewer may see it.
#include <map>

#include "account/account.h"
#include "records/camera_names.h"
#include "records/event_names.h"
#include "shm/ring_writer.h"
#include "velm/admission.h"
#include "velm/camera.h"

namespace oculora {
namespace {

constexpr int kErrNoSession = 105;

struct Condition {
  const char* state;
  std::string reason;
};

// The ring that live viewers read.
RingId LiveRing(const CameraRecord& camera) { return {camera.id, camera.MobileProfile().streamNo, RingKind::kVideo}; }

Condition ConditionOf(const CameraRecord& camera, bool recorderRuns) {
  if (!camera.enabled) return {"disabled", "switched off by an administrator"};
  if (camera.ownerNdId != 0) return {"idle", ""};  // its own server knows
  if (!recorderRuns) return {"off", "the recorder is not running"};
  RingStatus status;
  if (!ReadRingStatus(LiveRing(camera), status)) return {"connecting", "being started"};
  return {StateName(status.state), status.state == SourceState::kFailed ? status.reason : std::string()};
}

using RecordingStates = std::map<int, CameraRecording>;  // by camera

RecordingStates LoadRecordingStates(Database& records) {
  RecordingStates states;
  for (CameraRecording& state : EventTable(records).ListCameraStates()) states.emplace(state.camId, std::move(state));
  return states;
}

// What was noted last counts only while somebody records.
Json::Value DescribeRecording(const CameraRecord& camera, const RecordingStates& states, bool recorderRuns) {
  const auto noted = states.find(camera.id);
  const bool known = recorderRuns && noted != states.end();
  Json::Value item;
  item["mode"] = camera.recordSeconds > 0 ? "continuous" : "off";
  item["state"] = StateName(known ? noted->second.state : RecordingState::kOff);
  item["reason"] = known ? noted->second.reason : "";
  return item;
}

// Never the source: it may hold the camera's password.
Json::Value Describe(const CameraRecord& camera, bool recorderRuns) {
  const Condition condition = ConditionOf(camera, recorderRuns);
  Json::Value item;
  item["id"] = camera.id;
  item["name"] = camera.name;
  item["type"] = VideoTypeName(camera.videoType);
  item["remote"] = camera.ownerNdId != 0;
  item["enabled"] = camera.enabled;
  item["state"] = condition.state;
  item["reason"] = condition.reason;
  return item;
}

bool MayWatch(const VELM::APIRequest& request) {
  const PrivProfile profile = PrivProfileGetByUid(request.GetLoginUID());
  return profile.IsOperAllow(PRIV_OPER_LIVE) || profile.IsOperAllow(PRIV_OPER_PLAYBACK);
}

}  // namespace

// Someone who may watch nothing sees an empty list.
void ListCameras(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!request->IsAuthorized()) {
    response->SetError(kErrNoSession, "not logged in");
    return;
  }
  Json::Value data;
  data["cameras"] = Json::Value(Json::arrayValue);
  Database* database = RequestDatabase();
  if (database != nullptr && MayWatch(*request)) {
    const bool recorderRuns = IsQmRunning();
    const RecordingStates recordings = LoadRecordingStates(*database);
    for (const CameraRecord& camera : database->ListCameras()) {
      if (camera.deleting) continue;
      Json::Value item = Describe(camera, recorderRuns);
      item["recording"] = DescribeRecording(camera, recordings, recorderRuns);
      data["cameras"].append(std::move(item));
    }
  }
  response->SetSuccess(data);
}

}  // namespace oculora
