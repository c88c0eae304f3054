// Who is let in, the event that is meant, the records.
#include "events/admitting.h"

#include <charconv>
#include <limits>

#include "admission/pair_match.h"
#include "velm/admission.h"
#include "webapi/cgi_input.h"
#include "webapi/log_line.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "events";

bool MayUse(const VELM::APIRequest& request, unsigned needs) {
  if ((needs & kNeedAdmin) != 0) return request.IsAdmin();
  const PrivProfile profile = PrivProfileGetByUid(request.GetLoginUID());
  return ((needs & kNeedPlayback) == 0 || profile.IsOperAllow(PRIV_OPER_PLAYBACK)) &&
         ((needs & kNeedLive) == 0 || profile.IsOperAllow(PRIV_OPER_LIVE));
}

void RefuseUnknown(const std::string& name, VELM::APIResponse& response) {
  response.SetError(kErrUnknownEvent, "there is no event " + name);
}

struct NamedEvent {
  int camId = 0;
  int number = 0;
};

// "CAMERA:EVENT", both from 1 on.
std::optional<NamedEvent> SplitName(const std::string& text) {
  NamedEvent name;
  const char* const end = text.data() + text.size();
  const auto [colon, noCamera] = std::from_chars(text.data(), end, name.camId);
  if (noCamera != std::errc() || colon == end || *colon != ':') return std::nullopt;
  const auto [rest, noEvent] = std::from_chars(colon + 1, end, name.number);
  const bool whole = noEvent == std::errc() && rest == end && name.camId > 0 && name.number > 0;
  return whole ? std::optional(name) : std::nullopt;
}

}  // namespace

bool Admit(const VELM::APIRequest& request, VELM::APIResponse& response, unsigned needs) {
  const bool isPeer = IsPairedPeer(request);
  if (!isPeer && !request.IsAuthorized()) {
    response.SetError(kErrNotAllowed, "not logged in");
  } else if (!isPeer && !MayUse(request, needs)) {
    response.SetError(kErrNotAllowed, "not allowed");
  } else if ((needs & kNeedPost) != 0 && request.GetEnv("REQUEST_METHOD", "") != "POST") {
    response.SetError(kErrBadParameter, request.GetAPIMethod() + " needs a POST request");
  } else {
    return true;
  }
  return false;
}

// A default beyond an int asks for 64 bits.
std::int64_t LongParam(const VELM::APIRequest& request, const std::string& name) {
  constexpr std::int64_t kMissing = std::numeric_limits<std::int64_t>::min();
  const std::int64_t value = request.GetParam(name, Json::Int64{kMissing}).asInt64();
  return value == kMissing ? 0 : value;
}

std::optional<EventId> EventIdOf(const VELM::APIRequest& request, VELM::APIResponse& response) {
  const std::string text = request.GetParam("eventId", "").asString();
  const std::optional<NamedEvent> name = SplitName(text);
  const int number = name ? name->number : request.GetParam("eventId", 0).asInt();
  if (number < 1) {
    response.SetError(kErrBadParameter, "\"eventId\" is required: the number of an event, or CAMERA:EVENT");
    return std::nullopt;
  }
  if (!name) return EventId{number, std::nullopt};
  Database* records = RequestDatabase();
  if (records == nullptr) return std::nullopt;
  std::optional<CameraRecord> camera = records->LoadCamera(name->camId);
  if (!camera || camera->deleting) {
    RefuseUnknown(text, response);
    return std::nullopt;
  }
  if (camera->ownerNdId == 0) return EventId{number, std::nullopt};
  std::optional<RemoteCamera> owner = OwnerOf(std::move(*camera), response);
  return owner ? std::optional(EventId{number, std::move(owner)}) : std::nullopt;
}

std::optional<EventRecord> LoadEvent(int number, VELM::APIResponse& response) {
  Database* records = RequestDatabase();
  if (records == nullptr) return std::nullopt;
  std::optional<EventRecord> event = EventTable(*records).Load(number);
  if (event && event->state != EventState::kDeleting) return event;
  RefuseUnknown(std::to_string(number), response);
  return std::nullopt;
}

std::optional<Database> OpenForWriting(VELM::APIResponse& response) {
  std::string error;
  auto records = Database::Open(Database::Mode::kReadWrite, &error);
  if (!records) {
    HOST_LOG_ERROR("%s\n", error.c_str());
    response.SetError(kErrRecords, "the records of this system cannot be read");
  }
  return records;
}

void RefuseChange(const Database& records, VELM::APIResponse& response, int code) {
  if (!records.IsUnreadable()) {
    response.SetError(code, records.LastError());
    return;
  }
  HOST_LOG_ERROR("%s\n", records.LastError().c_str());
  response.SetError(kErrRecords, "the records of this system cannot be written");
}

}  // namespace oculora
