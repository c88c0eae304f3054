// Recorded events as answers: pages of them, and single ones.
#include <utility>

#include "admission/pair_match.h"
#include "events/admitting.h"
#include "events/events.h"
#include "events/server_page.h"
#include "events/server_pages.h"
#include "records/event_json.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr int kMostEvents = 200;
constexpr std::int64_t kLatestSeconds = 253402300799;  // the end of the year 9999

// What is asked for; the name of the parameter that is broken, or null.
const char* ReadQuestion(const VELM::APIRequest& request, ListQuestion& question) {
  const std::string after = request.GetParam("after", "").asString();
  question.from = LongParam(request, "from");
  question.to = LongParam(request, "to");
  question.camId = request.GetParam("cameraId", 0).asInt();
  question.limit = request.GetParam("limit", question.limit).asInt();
  if (!after.empty()) question.after = ReadCursor(after);
  if (question.camId < 0) return "\"cameraId\" is the number of a camera, or 0";
  if (question.from < 0 || question.from > kLatestSeconds) return "\"from\" is in seconds since 1970";
  if (question.to < 0 || question.to > kLatestSeconds) return "\"to\" is in seconds since 1970";
  if (question.limit < 1 || question.limit > kMostEvents) return "\"limit\" is 1 to 200";
  if (!after.empty() && !question.after) return "\"after\" is no \"next\" of an earlier answer";
  return nullptr;
}

std::string NameOf(int camId, const std::vector<CameraRecord>& cameras) {
  for (const CameraRecord& camera : cameras) {
    if (camera.id == camId) return camera.name;
  }
  return {};
}

// This host's own events. One more than asked for tells whether there are more.
EventPage OwnPage(Database& records, const ListQuestion& question, const std::vector<CameraRecord>& cameras) {
  EventQuery query;
  query.camId = question.camId;
  query.fromUs = question.from * 1000000;
  query.toUs = question.to * 1000000;
  query.limit = question.limit + 1;
  if (question.after) {
    const EventPlace cursor = CursorOn(0, *question.after);
    query.afterStartUs = cursor.startUs;
    query.afterId = cursor.id;
  }
  std::vector<EventRecord> events = EventTable(records).List(query);
  const bool more = events.size() > static_cast<std::size_t>(question.limit);
  if (more) events.pop_back();
  EventPage page;
  for (EventRecord& event : events) {
    const EventPlace place{event.startUs, 0, event.id};
    if (more) page.end = place;
    const std::string camera = NameOf(event.camId, cameras);
    page.events.push_back({place, DescribeEvent(std::move(event), camera)});
  }
  return page;
}

// The host that manages this one merges by times as exact as they are here.
void AddExactTimes(EventPage& page) {
  for (ListedEvent& event : page.events) event.item["startUs"] = Json::Int64{event.place.startUs};
}

Json::Value DescribePage(EventPage page) {
  Json::Value data;
  data["events"] = Json::Value(Json::arrayValue);
  for (ListedEvent& event : page.events) data["events"].append(std::move(event.item));
  if (page.end) data["next"] = CursorText(*page.end);
  return data;
}

// Of one that belongs to another host.
void GetThere(const EventId& id, VELM::APIResponse& response) {
  const RemoteCamera& owner = *id.owner;
  const auto told = AskOwner(owner, "Get", "eventId=" + std::to_string(id.number), response);
  if (!told) return;
  const KnownCameras cameras = {{owner.camera.idOnRec, {owner.camera.id, owner.camera.name}}};
  const std::optional<Json::Value> event = ReadServerEvent(*told, cameras);
  if (event && (*event)["id"] == RemoteEventId(owner.camera.id, id.number)) {
    response.SetSuccess(*event);
  } else {
    response.SetError(kErrUnknownEvent,
                      "camera " + std::to_string(owner.camera.id) + " has no event " + std::to_string(id.number));
  }
}

}  // namespace

void ListEvents(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  ListQuestion question;
  if (const char* wrong = ReadQuestion(*request, question)) {
    response->SetError(kErrBadParameter, wrong);
    return;
  }
  Database* records = RequestDatabase();
  if (records == nullptr) return;
  const bool forPeer = IsPairedPeer(*request);
  const std::vector<CameraRecord> cameras = records->ListCameras();
  const std::vector<AskedServer> asked = forPeer ? std::vector<AskedServer>() : ServersFor(question, *records, cameras);
  std::vector<EventPage> pages;
  if (question.camId == 0 || asked.empty()) pages.push_back(OwnPage(*records, question, cameras));
  if (records->IsUnreadable()) {
    response->SetError(kErrRecords, "the records of this system cannot be read");
    return;
  }
  const Json::Value missing = asked.empty() ? Json::Value(Json::arrayValue) : AddServerPages(asked, question, pages);
  EventPage page = MergePages(std::move(pages), static_cast<std::size_t>(question.limit));
  if (forPeer) AddExactTimes(page);
  Json::Value data = DescribePage(std::move(page));
  if (!forPeer) data["servers"] = missing;
  response->SetSuccess(data);
}

void GetEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  const std::optional<EventId> id = EventIdOf(*request, *response);
  if (!id) return;
  if (id->owner) {
    GetThere(*id, *response);
    return;
  }
  const std::optional<EventRecord> event = LoadEvent(id->number, *response);
  if (!event) return;
  const std::optional<CameraRecord> camera = RequestDatabase()->LoadCamera(event->camId);
  response->SetSuccess(DescribeEvent(*event, camera ? camera->name : ""));
}

}  // namespace oculora
