// Who may do what: application state, privileges, pairing of hosts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// Whether the recorder application is running on this host. One stat; never blocks.
bool IsQmRunning();

namespace SDKUser {
// Non-zero when `user`, coming from `remoteIp`, holds the application privilege. 0 for an unknown user.
int AppPrivUserHas(const std::string& user, const std::string& privilege, const std::string& remoteIp);
}  // namespace SDKUser

namespace DualAuth {
// Exports the second-factor cookie of a session to the environment of this process, for libraries that ask for it.
void CheckToSetEnv(const std::string& cookie, const std::string& sessionId);
}  // namespace DualAuth

namespace QmTaskSet {
// Applies the CPU set configured for `task` (the empty name: this process's default). No setting: no change.
void SetAffinity(const std::string& task);
}  // namespace QmTaskSet

// Whether `cookie` is the keyed hash over `timestamp` that the host managing this one would send now. Constant-time
// comparison; a time stamp outside the freshness window never matches. Non-zero on a match. `cookie` is normalised in
// place.
int IsAuthPairMatch(std::string& cookie, const std::string& timestamp);

// The same for a managing host on another site.
class SlaveNdAuthentication {
 public:
  int IsAuthByPairMatch(std::string& cookie, std::string& timestamp);
};

enum PRIV_OPER : std::int32_t { PRIV_OPER_LIVE = 1, PRIV_OPER_PLAYBACK = 2 };

// What a user may do. Loaded once, read-only afterwards.
class PrivProfile {
 public:
  PrivProfile() = default;
  explicit PrivProfile(std::uint32_t operations) : m_Operations(operations) {}
  bool IsOperAllow(PRIV_OPER operation) const;

 private:
  std::uint32_t m_Operations = 0;  // bit N: operation N
};

// The profile of a user; uid 1024 and administrators hold every operation, an unknown uid none.
PrivProfile PrivProfileGetByUid(unsigned uid);
