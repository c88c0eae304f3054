// What makes the cameras of a recording server here agree with those there. Pure.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/servers.h"
#include "servers/description.h"

namespace oculora {

struct SyncPlan {
  CameraChanges changes;
  std::map<int, StreamKeys> keys;  // of all its cameras that have some, by id here
};

// `ours`: all cameras of this host. A camera keeps its id here as long as it keeps its id there; a new one gets the
// next free one. A name that a camera of another server or of this host has becomes "NAME (SERVER)". Nothing, with a
// sentence in `reason`, when there are no more free ids.
std::optional<SyncPlan> PlanSync(const ServerRecord& server, const std::vector<ToldCamera>& told,
                                 const std::vector<CameraRecord>& ours, std::string& reason);

}  // namespace oculora
