// Times as people write them on the command line.
#include "admin/utc_time.h"

#include <charconv>
#include <ctime>

namespace oculora {
namespace {

constexpr std::int64_t kLatest = 253402300799;  // the end of the year 9999

bool EndsHere(const char* rest) { return rest != nullptr && (*rest == '\0' || (*rest == 'Z' && rest[1] == '\0')); }

}  // namespace

std::optional<std::int64_t> ParseUtcTime(const std::string& text) {
  const char* end = text.data() + text.size();
  std::int64_t seconds = 0;
  if (const auto parsed = std::from_chars(text.data(), end, seconds); parsed.ec == std::errc() && parsed.ptr == end) {
    return seconds >= 0 && seconds <= kLatest ? std::optional(seconds) : std::nullopt;
  }
  for (const char* format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M"}) {
    tm utc{};
    if (!EndsHere(strptime(text.c_str(), format, &utc))) continue;
    const tm written = utc;
    seconds = timegm(&utc);
    // "February the 30th" moves on to March.
    if (seconds >= 0 && utc.tm_mday == written.tm_mday) return seconds;
  }
  return std::nullopt;
}

}  // namespace oculora
