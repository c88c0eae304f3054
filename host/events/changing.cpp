// Recording on demand, keeping and removing events.
#include <ctime>

#include "events/admitting.h"
#include "events/events.h"
#include "events/server_page.h"
#include "records/recording_request.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr int kErrDisabled = 402;

// Makes a change to the event that is meant, when the request may, or has its owner make it; `params` ("&kept=true") go
// along to that. `code` is for one that the records refuse.
template <typename Change>
void ChangeEvent(VELM::APIRequest& request, VELM::APIResponse& response, unsigned needs, int code, Change change,
                 const std::string& params = {}) {
  if (!Admit(request, response, needs | kNeedPost)) return;
  const std::optional<EventId> id = EventIdOf(request, response);
  if (!id) return;
  if (id->owner) {
    const std::string call = "eventId=" + std::to_string(id->number) + params;
    if (AskOwner(*id->owner, request.GetAPIMethod(), call, response)) response.SetSuccess(Json::Value());
    return;
  }
  std::optional<Database> records = OpenForWriting(response);
  if (!records) return;
  EventTable events(*records);
  if (change(events, id->number)) {
    response.SetSuccess(Json::Value());
  } else {
    RefuseChange(*records, response, code);
  }
}

// Has the server of a camera record it.
void RecordThere(const RemoteCamera& owner, int seconds, VELM::APIResponse& response) {
  const CameraRecord& camera = owner.camera;
  if (!camera.enabled) {
    response.SetError(kErrDisabled, "camera " + std::to_string(camera.id) + " is switched off");
    return;
  }
  const std::string params = "cameraId=" + std::to_string(camera.idOnRec) + "&seconds=" + std::to_string(seconds);
  const std::optional<Json::Value> told = AskOwner(owner, "Record", params, response);
  if (!told) return;
  const Json::Value number = told->isObject() ? (*told)["eventId"] : Json::Value();
  if (!number.isInt() || number.asInt() < 1) {
    response.SetError(kErrFailed, "recording server \"" + owner.server.name + "\": " + kSenseless);
    return;
  }
  Json::Value data;
  data["eventId"] = RemoteEventId(camera.id, number.asInt());
  response.SetSuccess(data);
}

}  // namespace

void RecordEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedLive | kNeedPlayback | kNeedPost)) return;
  const int camId = request->GetParam("cameraId", 0).asInt();
  const int seconds = request->GetParam("seconds", 0).asInt();
  Database* known = RequestDatabase();
  std::optional<CameraRecord> camera = known == nullptr ? std::nullopt : known->LoadCamera(camId);
  if (camera && camera->ownerNdId != 0 && !camera->deleting) {
    if (const auto owner = OwnerOf(std::move(*camera), *response)) RecordThere(*owner, seconds, *response);
    return;
  }
  std::optional<Database> records = OpenForWriting(*response);
  if (!records) return;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  RecordingRefusal refusal;
  const std::int64_t nowUs = std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
  const std::optional<int> id = RequestRecording(*records, camId, seconds, nowUs, refusal);
  if (!id) {
    if (records->IsUnreadable()) {
      RefuseChange(*records, *response, refusal.code);
    } else {
      response->SetError(refusal.code, refusal.text);
    }
    return;
  }
  Json::Value data;
  data["eventId"] = *id;
  response->SetSuccess(data);
}

void StopEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  ChangeEvent(*request, *response, kNeedLive | kNeedPlayback, kErrUnknownEvent,
              [](EventTable& events, int id) { return events.Stop(id); });
}

void KeepEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  const bool kept = request->GetParam("kept", true).asBool();
  ChangeEvent(
      *request, *response, kNeedAdmin, kErrUnknownEvent,
      [kept](EventTable& events, int id) { return events.SetKept(id, kept); },
      std::string("&kept=") + (kept ? "true" : "false"));
}

void RemoveEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  ChangeEvent(*request, *response, kNeedAdmin, kErrUnknownEvent,
              [](EventTable& events, int id) { return events.MarkDeleting(id); });
}

}  // namespace oculora
