// The proof by which paired hosts know each other: a keyed hash over the time.
#include "admission/pair_match.h"

#include <charconv>
#include <ctime>

#include "admission/crypto.h"
#include "records/records.h"
#include "velm/admission.h"

namespace oculora {

std::string PairCookie(const std::string& secret, const std::string& timestamp) {
  return KeyedHash(secret, "oculora-pair:" + timestamp);
}

bool IsFreshTimestamp(const std::string& timestamp, std::int64_t nowSeconds) {
  std::int64_t value = 0;
  const char* end = timestamp.data() + timestamp.size();
  const auto [rest, error] = std::from_chars(timestamp.data(), end, value);
  if (error != std::errc() || rest != end || value < 0) return false;
  const std::int64_t age = nowSeconds - value;
  return age >= -kPairWindowSeconds && age <= kPairWindowSeconds;
}

namespace {

// Without quotes and surrounding spaces, in lower case.
void Normalise(std::string& cookie) {
  static constexpr char kAround[] = " \t\"";
  const std::size_t first = cookie.find_first_not_of(kAround);
  if (first == std::string::npos) {
    cookie.clear();
    return;
  }
  cookie = cookie.substr(first, cookie.find_last_not_of(kAround) - first + 1);
  for (char& c : cookie) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
}

bool Matches(const std::string& secret, const std::string& timestamp, const std::string& cookie) {
  const std::string expected = PairCookie(secret, timestamp);
  return !expected.empty() && EqualInConstantTime(expected, cookie);
}

// The one peer with rights here is the host that manages this one. A recording server that this one manages has none:
// nothing calls in that direction, and whoever takes one over must not get the others.
bool MatchesManager(std::string& cookie, const std::string& timestamp) {
  Normalise(cookie);
  if (cookie.empty() || !IsFreshTimestamp(timestamp, std::time(nullptr))) return false;
  Database* database = RequestDatabase();
  if (database == nullptr) return false;
  const std::string secret = database->GetSetting("pair_secret", "");
  return !secret.empty() && Matches(secret, timestamp, cookie);
}

}  // namespace

bool IsPairedPeer(const VELM::APIRequest& request) {
  const std::string client = request.GetParam("client", "").asString();
  if (client != "NVR" && client != "REC_SERVER") return false;
  std::string cookie = request.GetParam("cookie", "").asString();
  const std::string timestamp = request.GetCookie("timestamp", "");
  return !cookie.empty() && !timestamp.empty() && MatchesManager(cookie, timestamp);
}

}  // namespace oculora

int IsAuthPairMatch(std::string& cookie, const std::string& timestamp) {
  return oculora::MatchesManager(cookie, timestamp) ? 1 : 0;
}

int SlaveNdAuthentication::IsAuthByPairMatch(std::string& cookie, std::string& timestamp) {
  return oculora::MatchesManager(cookie, timestamp) ? 1 : 0;
}
