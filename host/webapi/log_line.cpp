// One line of the host's own into the log.
#include "webapi/log_line.h"

#include <cstdarg>

#include "velm/log.h"

namespace oculora {

void LogError(const char* unit, int line, const char* function, const char* format, ...) {
  static const QmEnum2StrMap<LOG_LEVEL> levels;
  const auto level = levels.find(LOG_LEVEL_ERROR);
  va_list args;
  va_start(args, format);
  QmVPrintf(LOG_TYPE_DEFAULT, nullptr, level != levels.end() ? level->second : nullptr, unit, line, function, format,
            args);
  va_end(args);
}

std::string ForLog(const std::string& text) {
  constexpr std::size_t kMaxBytes = 100;
  std::string safe = text.substr(0, kMaxBytes);
  for (char& c : safe) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f || c == '"' || c == '\\') c = '?';
  }
  if (text.size() > kMaxBytes) safe += "...";
  return safe;
}

}  // namespace oculora
