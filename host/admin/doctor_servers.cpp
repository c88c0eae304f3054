// Checks of recording servers.
#include "admin/doctor_servers.h"

#include <algorithm>
#include <cstdlib>

#include "admin/key_file.h"
#include "admin/server_cameras.h"
#include "admission/pair_match.h"
#include "servers/asking.h"

namespace oculora {
namespace {

constexpr int kAskSeconds = 6;

std::string Which(const ServerRecord& server) {
  return "server " + std::to_string(server.id) + " \"" + server.name + "\"";
}

void CheckReached(Findings& findings, const ServerState& state) {
  const std::string which = Which(state.server);
  switch (state.trouble) {
    case ServerTrouble::kNone:
      return NoteOk(findings, which + " answers");
    case ServerTrouble::kClock:
      return;  // told by the check of clocks
    case ServerTrouble::kSecret:
      return NoteFailure(findings, which + ": " + state.reason,
                         "\"oculora server add\" with --replace does so and keeps its cameras");
    case ServerTrouble::kSilent:
      return NoteFailure(findings, which + ": " + state.reason,
                         "check that it runs and that " + state.server.url + " is its address");
    case ServerTrouble::kAnswer:
      return NoteFailure(findings, which + ": " + state.reason, "check that " + state.server.url + " is its address");
  }
}

// A proof is good for a while before and behind the time it was made; half of that may be used up by chance.
void CheckItsClock(Findings& findings, const ServerState& state) {
  if (!state.clockAheadSeconds) return;
  const std::int64_t off = std::llabs(*state.clockAheadSeconds);
  const std::string text = Which(state.server) + ": " + ClockText(*state.clockAheadSeconds);
  if (off > kPairWindowSeconds) {
    NoteFailure(findings, text, "it refuses this host for that; set both clocks by a time server");
  } else if (off > kPairWindowSeconds / 2) {
    NoteWarning(findings, text,
                "from " + std::to_string(kPairWindowSeconds) + " s on it refuses this host; set both by a time server");
  }
}

// The secret of the pair opens these too, so there is nothing to be done.
void TellOfKeylessCameras(Findings& findings, const ServerState& state) {
  const auto& cameras = state.told->cameras;
  const auto isKeyless = [](const ToldCamera& camera) { return camera.keys.first.empty(); };
  const auto count = std::count_if(cameras.begin(), cameras.end(), isKeyless);
  if (count == 0) return;
  NoteOk(findings, Which(state.server) + " tells no stream keys for " + std::to_string(count) + " of its " +
                       std::to_string(cameras.size()) + " cameras; the secret of the pair opens them");
}

void CheckItsCameras(Findings& findings, const ServerState& state, const std::vector<CameraRecord>& cameras) {
  std::string reason;
  const auto plan = PlanSync(state.server, state.told->cameras, cameras, reason);
  if (!plan) return NoteFailure(findings, Which(state.server) + ": " + reason, "remove cameras");
  const std::size_t count = plan->changes.added.size() + plan->changes.changed.size() + plan->changes.removed.size();
  const std::string sync = "run \"oculora server sync " + std::to_string(state.server.id) + "\"";
  if (count != 0) {
    NoteWarning(findings, Which(state.server) + ": " + std::to_string(count) + " cameras are out of date here", sync);
  } else if (!HoldsStreamKeys(state.server.id, plan->keys)) {
    NoteWarning(findings, Which(state.server) + ": stream keys are missing or out of date here", sync);
  }
  for (const std::string& note : state.told->notes) NoteWarning(findings, Which(state.server), note);
  TellOfKeylessCameras(findings, state);
  if (!state.told->recorderRuns) {
    NoteWarning(findings, Which(state.server) + ": its recorder is not running", "see \"oculora doctor\" there");
  }
}

}  // namespace

void CheckServers(Findings& findings, const std::vector<CameraRecord>& cameras) {
  std::string error;
  auto records = Database::Open(Database::Mode::kReadOnly, &error);
  if (!records) return;  // told by the check of records
  const CentralRecord central = ServerTable(*records).Central();
  const std::vector<ServerRecord> servers = records->ListServers();
  if (records->IsUnreadable()) return NoteFailure(findings, "the servers cannot be listed", records->LastError());
  if (!central.secret.empty()) {
    NoteOk(findings, "this host is paired with the host that manages it" +
                         (central.name.empty() ? "" : ", \"" + central.name + "\""));
  }
  for (const ServerState& state : AskServers(servers, kAskSeconds)) {
    CheckReached(findings, state);
    CheckItsClock(findings, state);
    if (state.told) CheckItsCameras(findings, state, cameras);
  }
}

}  // namespace oculora
