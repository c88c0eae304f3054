// Log lines of the recorder: a line for each change of state, in the host's log.
#include "recorder/recorder_log.h"

#include <velm/log.h>

#include <cstdarg>

namespace oculora {
namespace {

constexpr char kUnit[] = "recorder";

}  // namespace

void LogInfo(const char* format, ...) {
  va_list args;
  va_start(args, format);
  QmVPrintf(LOG_TYPE_DEFAULT, nullptr, "INFO", kUnit, 0, nullptr, format, args);
  va_end(args);
}

void LogError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  QmVPrintf(LOG_TYPE_DEFAULT, nullptr, "ERROR", kUnit, 0, nullptr, format, args);
  va_end(args);
}

}  // namespace oculora
