// What recording servers tell of their events, checked and turned into this host's own words. A server may be broken
// or in foreign hands: nothing of it is passed on that has not been looked at.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <string>

#include "events/paging.h"

namespace oculora {

// A camera of a recording server as it is known here.
struct KnownCamera {
  int id = 0;  // this host's
  std::string name;
};

// The cameras of one server that this host has, by their ids there.
using KnownCameras = std::map<int, KnownCamera>;

// "CAMERA:EVENT": how this host calls an event of another one. `camId` is this host's id of the camera.
std::string RemoteEventId(int camId, int eventId);

// One event of a server, with this host's ids. Numbers that make no sense become 0, words that are none of ours empty,
// texts are cut. Empty when it is no event or one of a camera that this host does not have.
std::optional<Json::Value> ReadServerEvent(const Json::Value& event, const KnownCameras& cameras);

// What a server was asked for.
struct PageQuestion {
  int server = 0;
  int limit = 0;
  std::int64_t fromUs = 0, toUs = 0;  // 0: no limit
  std::optional<EventPlace> after;    // CursorOn that server
};

// The answer to a List. Empty when it is none, or not an answer to the question: an event too many, out of order, out
// of range or from before the cursor would make a client's pages repeat themselves.
std::optional<EventPage> ReadServerPage(const Json::Value& data, const PageQuestion& question,
                                        const KnownCameras& cameras);

}  // namespace oculora
