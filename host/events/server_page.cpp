// Checks what recording servers tell of their events.
#include "events/server_page.h"

#include <algorithm>
#include <initializer_list>

#include "records/event_names.h"
#include "servers/clean_text.h"
#include "velm/camera.h"
#include "velm/event.h"

namespace oculora {
namespace {

constexpr std::size_t kMostReason = 300;
constexpr std::size_t kMostFileKind = 16;

// A count or a length; 0 for what is none.
Json::Int64 Amount(const Json::Value& value) {
  return value.isInt64() ? std::max<Json::Int64>(value.asInt64(), 0) : Json::Int64{0};
}

int SmallAmount(const Json::Value& value) { return value.isInt() ? std::max(value.asInt(), 0) : 0; }

bool Flag(const Json::Value& value) { return value.isBool() && value.asBool(); }

std::string OneOf(const Json::Value& value, std::initializer_list<const char*> words) {
  const std::string text = value.isString() ? value.asString() : std::string();
  const bool known = std::any_of(words.begin(), words.end(), [&](const char* word) { return text == word; });
  return known ? text : std::string();
}

std::string Line(const Json::Value& value) {
  return value.isString() ? CleanText(value.asString(), kMostReason) : std::string();
}

std::string Extension(const Json::Value& value) {
  const std::string text = value.isString() ? value.asString() : std::string();
  const bool fits = text.size() <= kMostFileKind && std::all_of(text.begin(), text.end(), [](unsigned char c) {
                      return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
                    });
  return fits ? text : std::string();
}

// The camera that an event of a server names; null when this host does not have it.
const KnownCamera* CameraOf(const Json::Value& event, const KnownCameras& cameras) {
  const auto found = event["cameraId"].isInt() ? cameras.find(event["cameraId"].asInt()) : cameras.end();
  return found == cameras.end() ? nullptr : &found->second;
}

bool HasId(const Json::Value& event) { return event.isObject() && event["id"].isInt() && event["id"].asInt() > 0; }

// Where an event stands, if it may stand behind `before` in an answer to the question.
std::optional<EventPlace> PlaceOf(const Json::Value& event, const PageQuestion& question,
                                  const std::optional<EventPlace>& before) {
  if (!HasId(event) || !event["startUs"].isInt64()) return std::nullopt;
  const EventPlace place{event["startUs"].asInt64(), question.server, event["id"].asInt()};
  const bool inTime = place.startUs >= question.fromUs && (question.toUs == 0 || place.startUs < question.toUs);
  if (!inTime || (before && !StandsBefore(*before, place))) return std::nullopt;
  return place;
}

}  // namespace

std::string RemoteEventId(int camId, int eventId) { return std::to_string(camId) + ":" + std::to_string(eventId); }

std::optional<Json::Value> ReadServerEvent(const Json::Value& event, const KnownCameras& cameras) {
  const KnownCamera* camera = HasId(event) ? CameraOf(event, cameras) : nullptr;
  if (camera == nullptr) return std::nullopt;
  Json::Value item;
  item["id"] = RemoteEventId(camera->id, event["id"].asInt());
  item["cameraId"] = camera->id;
  item["camera"] = camera->name;
  item["start"] = Amount(event["start"]);
  item["length"] = Amount(event["length"]);
  item["bytes"] = Amount(event["bytes"]);
  item["frames"] = SmallAmount(event["frames"]);
  item["type"] = event["type"] == REC_EVENT_TYPE_ALERT ? REC_EVENT_TYPE_ALERT : REC_EVENT_TYPE_RECORDING;
  item["deviceType"] = SmallAmount(event["deviceType"]);
  item["task"] = SmallAmount(event["task"]);
  item["cause"] = OneOf(event["cause"], {CauseName(EventCause::kContinuous), CauseName(EventCause::kRequest),
                                         CauseName(EventCause::kImport)});
  item["state"] = OneOf(event["state"], {StateName(EventState::kReady), StateName(EventState::kRecording),
                                         StateName(EventState::kRequested), StateName(EventState::kFailed)});
  item["reason"] = Line(event["reason"]);
  item["videoType"] =
      OneOf(event["videoType"], {PicturesName(0), PicturesName(VIDEO_TYPE_MJPEG), PicturesName(VIDEO_TYPE_MPEG4),
                                 PicturesName(VIDEO_TYPE_H264), PicturesName(VIDEO_TYPE_MXPEG)});
  item["file"] = Extension(event["file"]);
  item["kept"] = Flag(event["kept"]);
  item["played"] = Flag(event["played"]);
  return item;
}

std::optional<EventPage> ReadServerPage(const Json::Value& data, const PageQuestion& question,
                                        const KnownCameras& cameras) {
  if (!data.isObject() || !data["events"].isArray()) return std::nullopt;
  const Json::Value& events = data["events"];
  if (events.size() > static_cast<Json::ArrayIndex>(question.limit)) return std::nullopt;
  EventPage page;
  std::optional<EventPlace> last = question.after;
  for (const Json::Value& event : events) {
    last = PlaceOf(event, question, last);
    if (!last) return std::nullopt;
    if (std::optional<Json::Value> item = ReadServerEvent(event, cameras))
      page.events.push_back({*last, std::move(*item)});
  }
  if (!data.isMember("next")) return page;
  if (events.empty()) return std::nullopt;
  page.end = last;
  return page;
}

}  // namespace oculora
