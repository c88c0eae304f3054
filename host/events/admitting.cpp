// Who is let in, the event that is meant, the records.
#include "events/admitting.h"

#include <limits>

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

}  // namespace

bool Admit(const VELM::APIRequest& request, VELM::APIResponse& response, unsigned needs) {
  if (!request.IsAuthorized()) {
    response.SetError(kErrNotAllowed, "not logged in");
  } else if (!MayUse(request, needs)) {
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

std::optional<int> EventIdOf(const VELM::APIRequest& request, VELM::APIResponse& response) {
  const int id = request.GetParam("eventId", 0).asInt();
  if (id > 0) return id;
  response.SetError(kErrBadParameter, "\"eventId\" is required: the number of an event");
  return std::nullopt;
}

std::optional<EventRecord> EventOf(const VELM::APIRequest& request, VELM::APIResponse& response) {
  const std::optional<int> id = EventIdOf(request, response);
  Database* records = RequestDatabase();
  if (!id || records == nullptr) return std::nullopt;
  std::optional<EventRecord> event = EventTable(*records).Load(*id);
  if (event && event->state != EventState::kDeleting) return event;
  response.SetError(kErrUnknownEvent, "there is no event " + std::to_string(*id));
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
