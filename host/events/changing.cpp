// Recording on demand, keeping and removing events.
#include <ctime>

#include "events/admitting.h"
#include "events/events.h"
#include "records/recording_request.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

// Makes a change to the event that is meant, when the request may; `code` is for one that the records refuse.
template <typename Change>
void ChangeEvent(VELM::APIRequest& request, VELM::APIResponse& response, unsigned needs, int code, Change change) {
  if (!Admit(request, response, needs | kNeedPost)) return;
  const std::optional<int> id = EventIdOf(request, response);
  if (!id) return;
  std::optional<Database> records = OpenForWriting(response);
  if (!records) return;
  EventTable events(*records);
  if (change(events, *id)) {
    response.SetSuccess(Json::Value());
  } else {
    RefuseChange(*records, response, code);
  }
}

}  // namespace

void RecordEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedLive | kNeedPlayback | kNeedPost)) return;
  const int camId = request->GetParam("cameraId", 0).asInt();
  const int seconds = request->GetParam("seconds", 0).asInt();
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
  ChangeEvent(*request, *response, kNeedAdmin, kErrUnknownEvent,
              [kept](EventTable& events, int id) { return events.SetKept(id, kept); });
}

void RemoveEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  ChangeEvent(*request, *response, kNeedAdmin, kErrUnknownEvent,
              [](EventTable& events, int id) { return events.MarkDeleting(id); });
}

}  // namespace oculora
