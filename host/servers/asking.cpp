// Asking recording servers.
#include "servers/asking.h"

#include <cstdlib>

#include "admission/pair_match.h"
#include "servers/clean_text.h"

namespace oculora {
namespace {

constexpr char kQuery[] = "api=VELM.Oculora.Server&method=Describe&version=1";
constexpr std::size_t kMaxReason = 300;
constexpr int kErrUnknownApi = 102;
constexpr int kErrUnknownVersion = 104;
constexpr int kErrRefused = 105;

bool IsClockTooFar(const PeerAnswer& answer) {
  return answer.clockAheadSeconds && std::llabs(*answer.clockAheadSeconds) > kPairWindowSeconds;
}

void JudgeRefusal(ServerState& state, const PeerAnswer& answer) {
  if (answer.code == kErrRefused && IsClockTooFar(answer)) {
    state.trouble = ServerTrouble::kClock;
    state.reason = ClockText(*answer.clockAheadSeconds) + "; set both by a time server";
  } else if (answer.code == kErrRefused) {
    state.trouble = ServerTrouble::kSecret;
    state.reason = "it refuses this host: the secrets differ; pair them again";
  } else if (answer.code >= kErrUnknownApi && answer.code <= kErrUnknownVersion) {
    state.trouble = ServerTrouble::kAnswer;
    state.reason = "its version cannot be managed from here; bring both hosts to the same one";
  } else {
    state.trouble = answer.code == 0 ? ServerTrouble::kSilent : ServerTrouble::kAnswer;
    state.reason = CleanText(answer.reason, kMaxReason);
  }
}

}  // namespace

std::string ClockText(std::int64_t aheadSeconds) {
  return "its clock is " + std::to_string(std::llabs(aheadSeconds)) + " s " +
         (aheadSeconds < 0 ? "behind" : "ahead of") + " this host's";
}

ServerState JudgeAnswer(const ServerRecord& server, const PeerAnswer& answer) {
  ServerState state;
  state.server = server;
  state.clockAheadSeconds = answer.clockAheadSeconds;
  if (!answer.success) {
    JudgeRefusal(state, answer);
    return state;
  }
  state.told = ReadDescription(answer.data, state.reason);
  if (!state.told) {
    state.trouble = ServerTrouble::kAnswer;
    state.reason = "its answer makes no sense: " + state.reason;
  }
  return state;
}

std::vector<ServerState> AskServers(const std::vector<ServerRecord>& servers, int totalSeconds) {
  std::vector<PeerCall> calls;
  calls.reserve(servers.size());
  for (const ServerRecord& server : servers) calls.push_back({server, kQuery});
  const std::vector<PeerAnswer> answers = CallServers(calls, totalSeconds);
  std::vector<ServerState> states;
  states.reserve(servers.size());
  for (std::size_t i = 0; i < servers.size(); ++i) states.push_back(JudgeAnswer(servers[i], answers[i]));
  return states;
}

}  // namespace oculora
