// Checks and encodes queries to recording servers.
#include "relay/query_form.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace oculora {
namespace {

// The parameters that may travel. Nothing else is passed on: what a handler collects from a client must not turn into a
// parameter that the other host trusts.
constexpr std::array<std::string_view, 12> kTravellingKeys = {
    "api", "method", "version", "cameraId",    "format",   "itemType",
    "SID", "HostIp", "SliceId", "CamIdOnHost", "useHttps", "isRedirectCgi",
};

constexpr std::string_view kLiveKeys[] = {"api", "method", "version", "isRedirectCgi", "cameraId", "format", "StmKey"};
constexpr std::string_view kPicturesKeys[] = {"api",        "method",    "version",   "isRedirectCgi", "eventId",
                                              "framestart", "framestop", "timestamp", "checkpgid"};
constexpr std::string_view kFileKeys[] = {"api", "method", "version", "isRedirectCgi", "eventId", "HTTP_RANGE"};

std::span<const std::string_view> KeysOf(QueryForm form) {
  switch (form) {
    case QueryForm::kLiveStream:
      return kLiveKeys;
    case QueryForm::kEventPictures:
      return kPicturesKeys;
    case QueryForm::kEventFile:
      return kFileKeys;
    case QueryForm::kEncoded:
      break;
  }
  return {};
}

struct Pair {
  std::string_view key, value;
};

// At most `most` pairs: the last one takes whatever is left.
std::vector<Pair> Split(std::string_view query, std::size_t most) {
  std::vector<Pair> pairs;
  while (true) {
    const std::size_t end = pairs.size() + 1 < most ? query.find('&') : std::string_view::npos;
    const std::string_view piece = query.substr(0, end);
    const std::size_t equals = std::min(piece.find('='), piece.size());
    pairs.push_back({piece.substr(0, equals), piece.substr(std::min(equals + 1, piece.size()))});
    if (end == std::string_view::npos) return pairs;
    query.remove_prefix(end + 1);
  }
}

bool IsUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.' || c == '~';
}

bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }

bool IsEncoded(std::string_view value) {
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (IsUnreserved(value[i])) continue;
    if (value[i] != '%' || i + 2 >= value.size() || !IsHexDigit(value[i + 1]) || !IsHexDigit(value[i + 2]))
      return false;
    i += 2;
  }
  return true;
}

bool IsFitEncoded(const std::vector<Pair>& pairs) {
  for (auto pair = pairs.begin(); pair != pairs.end(); ++pair) {
    const auto isSame = [&](const Pair& other) { return other.key == pair->key; };
    if (!MayTravel(std::string(pair->key)) || !IsEncoded(pair->value)) return false;
    if (std::any_of(pairs.begin(), pair, isSame)) return false;
  }
  return true;
}

}  // namespace

bool MayTravel(const std::string& key) {
  return std::find(kTravellingKeys.begin(), kTravellingKeys.end(), key) != kTravellingKeys.end();
}

std::string PercentEncode(const std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (IsUnreserved(c)) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return encoded;
}

std::optional<std::string> FitQuery(QueryForm form, const std::string& query) {
  if (form == QueryForm::kEncoded) {
    return IsFitEncoded(Split(query, query.size())) ? std::optional(query) : std::nullopt;
  }
  const std::span<const std::string_view> keys = KeysOf(form);
  const std::vector<Pair> pairs = Split(query, keys.size());
  if (pairs.size() != keys.size()) return std::nullopt;
  std::string fit;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (pairs[i].key != keys[i]) return std::nullopt;
    if (i > 0) fit += '&';
    fit += std::string(keys[i]) + "=" + PercentEncode(std::string(pairs[i].value));
  }
  return fit;
}

}  // namespace oculora
