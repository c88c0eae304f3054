// Asking recording servers what they are doing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "relay/peer.h"
#include "servers/description.h"

namespace oculora {

enum class ServerTrouble { kNone, kSilent, kClock, kSecret, kAnswer };

struct ServerState {
  ServerRecord server;
  std::optional<ServerDescription> told;  // empty: it is down
  ServerTrouble trouble = ServerTrouble::kNone;
  std::string reason;  // of one that is down, for people; does not name it
  std::optional<std::int64_t> clockAheadSeconds;
};

// Asks all of them side by side, for `totalSeconds` at most; in their order.
std::vector<ServerState> AskServers(const std::vector<ServerRecord>& servers, int totalSeconds);

// What an answer means. Pure.
ServerState JudgeAnswer(const ServerRecord& server, const PeerAnswer& answer);

// "its clock is 412 s ahead of this host's", or behind it.
std::string ClockText(std::int64_t aheadSeconds);

}  // namespace oculora
