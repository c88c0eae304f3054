// The pages that recording servers have for a list of events.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "events/paging.h"
#include "events/server_page.h"
#include "records/records.h"

namespace oculora {

// What a client wants listed.
struct ListQuestion {
  int camId = 0;                  // 0: every camera
  std::int64_t from = 0, to = 0;  // seconds since 1970; 0: no limit
  int limit = 50;
  std::optional<EventPlace> after;
};

// A server to ask for its events, and those of its cameras whose events are wanted.
struct AskedServer {
  ServerRecord server;
  KnownCameras cameras;
};

// The servers that may have such events: those with a camera here; with a camera in the question, its server alone.
std::vector<AskedServer> ServersFor(const ListQuestion& question, Database& records,
                                    const std::vector<CameraRecord>& cameras);

// Asks the servers side by side, some seconds at most, and adds their pages. Those that are missing from `pages`, with
// the reasons: [{id, name, reason}].
Json::Value AddServerPages(const std::vector<AskedServer>& asked, const ListQuestion& question,
                           std::vector<EventPage>& pages);

}  // namespace oculora
