// The proof by which paired hosts know each other.
#pragma once

#include <cstdint>
#include <string>

#include "velm/webapi.h"

namespace oculora {

constexpr std::int64_t kPairWindowSeconds = 300;

// The proof over `timestamp` (decimal seconds since 1970) under the hosts' shared secret; empty on failure.
std::string PairCookie(const std::string& secret, const std::string& timestamp);

// Whether `timestamp` is a decimal number within kPairWindowSeconds of `nowSeconds`, on either side.
bool IsFreshTimestamp(const std::string& timestamp, std::int64_t nowSeconds);

// Whether the host that manages this one sent the request: it brings the proof in "cookie" and the time in the cookie
// "timestamp".
bool IsPairedPeer(const VELM::APIRequest& request);

}  // namespace oculora
