// What the methods of recordings share: who is let in, the event that is meant, the records.
#pragma once

#include <optional>

#include "events/owner.h"
#include "records/events.h"
#include "velm/webapi.h"

namespace oculora {

enum EventError : int {
  kErrFailed = 100,
  kErrNotAllowed = 105,
  kErrUnknownEvent = 401,
};

// What a method asks of a request, as bits; a session always.
enum Need : unsigned { kNeedPlayback = 1, kNeedLive = 2, kNeedAdmin = 4, kNeedPost = 8 };

// Whether the request has all that `needs` says. Answers when it has not. The host that manages this one has every
// right: it looks at its users' itself.
bool Admit(const VELM::APIRequest& request, VELM::APIResponse& response, unsigned needs);

// A parameter of 64 bits; 0 when it is missing or no such number.
std::int64_t LongParam(const VELM::APIRequest& request, const std::string& name);

// An event as "eventId" names it.
struct EventId {
  int number = 0;
  std::optional<RemoteCamera> owner;  // of an event of another host
};

// The parameter "eventId": "EVENT" or "CAMERA:EVENT". Empty, and answered, when it is missing or broken, and when the
// camera that it names is not there.
std::optional<EventId> EventIdOf(const VELM::APIRequest& request, VELM::APIResponse& response);

// An event of this host, unless it is being deleted. Empty, and answered, when there is none.
std::optional<EventRecord> LoadEvent(int number, VELM::APIResponse& response);

// The records for writing. Empty, and answered, when they cannot be opened.
std::optional<Database> OpenForWriting(VELM::APIResponse& response);

// Answers that a change failed: the records are out of reach, or, with `code`, the last error's own words.
void RefuseChange(const Database& records, VELM::APIResponse& response, int code);

}  // namespace oculora
