// Reading the cameras of a recording server.
#include "admin/server_sync.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "admin/key_file.h"
#include "admin/server_cameras.h"
#include "servers/asking.h"

namespace oculora {
namespace {

constexpr int kAskSeconds = 10;

void PrintCameras(const char* what, const std::vector<CameraRecord>& cameras) {
  for (const CameraRecord& camera : cameras) printf("%-7s  %6d  %s\n", what, camera.id, camera.name.c_str());
}

void PrintSummary(const ServerRecord& server, const ServerDescription& told, const SyncPlan& plan, bool keysChanged) {
  for (const std::string& note : told.notes) printf("%s\n", note.c_str());
  const CameraChanges& changes = plan.changes;
  PrintCameras("added", changes.added);
  PrintCameras("changed", changes.changed);
  PrintCameras("removed", changes.removed);
  const std::size_t count = changes.added.size() + changes.changed.size() + changes.removed.size();
  printf("server %d \"%s\" has %zu cameras: %s", server.id, server.name.c_str(), told.cameras.size(),
         count == 0 && !keysChanged ? "nothing to change" : "");
  if (count != 0) {
    printf("%zu added, %zu changed, %zu removed", changes.added.size(), changes.changed.size(), changes.removed.size());
  }
  if (keysChanged) printf("%sstream keys brought up to date", count != 0 ? "; " : "");
  printf("\n");
}

}  // namespace

std::string SyncServer(Database& records, const ServerRecord& server) {
  const std::string which = "server " + std::to_string(server.id) + " \"" + server.name + "\": ";
  const ServerState state = AskServers({server}, kAskSeconds).front();
  if (!state.told) return which + state.reason;
  const std::vector<CameraRecord> ours = records.ListCameras();
  if (records.IsUnreadable()) return records.LastError();
  std::string reason;
  const std::optional<SyncPlan> plan = PlanSync(server, state.told->cameras, ours, reason);
  if (!plan) return reason;
  if (!ServerTable(records).Apply(server.id, plan->changes)) return records.LastError();
  const bool keysChanged = !HoldsStreamKeys(server.id, plan->keys);
  if (keysChanged && !ReplaceStreamKeys(server.id, plan->keys)) {
    return which + "the cameras are up to date, but their stream keys cannot be written to " + kStreamKeyDir + ": " +
           std::strerror(errno);
  }
  PrintSummary(server, *state.told, *plan, keysChanged);
  return {};
}

}  // namespace oculora
