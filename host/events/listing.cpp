// Recorded events as answers: pages of them, and single ones.
#include <cinttypes>
#include <cstdio>
#include <map>

#include "events/admitting.h"
#include "events/events.h"
#include "records/event_json.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr int kMostEvents = 200;
constexpr std::int64_t kLatestSeconds = 253402300799;  // the end of the year 9999

// Where a page ended. Clients hand it back as it is.
std::string Cursor(const EventRecord& last) { return std::to_string(last.startUs) + "-" + std::to_string(last.id); }

bool ReadCursor(const std::string& text, EventQuery& query) {
  std::int64_t startUs = 0;
  int id = 0;
  int used = 0;
  const bool read = text.size() < 40 && sscanf(text.c_str(), "%" SCNd64 "-%d%n", &startUs, &id, &used) == 2;
  if (!read || text.size() != static_cast<std::size_t>(used) || id <= 0) return false;
  query.afterStartUs = startUs;
  query.afterId = id;
  return true;
}

// What is asked for; the name of the parameter that is broken, or null.
const char* ReadQuery(const VELM::APIRequest& request, EventQuery& query) {
  const std::int64_t from = LongParam(request, "from");
  const std::int64_t to = LongParam(request, "to");
  const std::string after = request.GetParam("after", "").asString();
  query.camId = request.GetParam("cameraId", 0).asInt();
  query.limit = request.GetParam("limit", query.limit).asInt();
  if (query.camId < 0) return "\"cameraId\" is the number of a camera, or 0";
  if (from < 0 || from > kLatestSeconds) return "\"from\" is in seconds since 1970";
  if (to < 0 || to > kLatestSeconds) return "\"to\" is in seconds since 1970";
  if (query.limit < 1 || query.limit > kMostEvents) return "\"limit\" is 1 to 200";
  if (!after.empty() && !ReadCursor(after, query)) return "\"after\" is no \"next\" of an earlier answer";
  query.fromUs = from * 1000000;
  query.toUs = to * 1000000;
  return nullptr;
}

std::map<int, std::string> CameraNames(Database& records) {
  std::map<int, std::string> names;
  for (CameraRecord& camera : records.ListCameras()) names.emplace(camera.id, std::move(camera.name));
  return names;
}

}  // namespace

void ListEvents(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  EventQuery query;
  if (const char* wrong = ReadQuery(*request, query)) {
    response->SetError(kErrBadParameter, wrong);
    return;
  }
  Database* records = RequestDatabase();
  if (records == nullptr) return;
  // One more than asked for tells whether there is another page.
  const int limit = query.limit++;
  std::vector<EventRecord> events = EventTable(*records).List(query);
  const std::map<int, std::string> names = CameraNames(*records);
  if (records->IsUnreadable()) {
    response->SetError(kErrRecords, "the records of this system cannot be read");
    return;
  }
  Json::Value data;
  data["events"] = Json::Value(Json::arrayValue);
  if (events.size() > static_cast<std::size_t>(limit)) {
    events.pop_back();
    data["next"] = Cursor(events.back());
  }
  for (EventRecord& event : events) {
    const auto name = names.find(event.camId);
    data["events"].append(DescribeEvent(std::move(event), name == names.end() ? "" : name->second));
  }
  response->SetSuccess(data);
}

void GetEvent(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  const std::optional<EventRecord> event = EventOf(*request, *response);
  if (!event) return;
  const std::optional<CameraRecord> camera = RequestDatabase()->LoadCamera(event->camId);
  response->SetSuccess(DescribeEvent(*event, camera ? camera->name : ""));
}

}  // namespace oculora
