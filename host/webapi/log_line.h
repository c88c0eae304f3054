// One line of the host's own into the log.
#pragma once

#include <string>

namespace oculora {

// Writes a line at level error, whatever thresholds are set. Control characters become spaces.
void LogError(const char* unit, int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// `text` from a client, fit to stand in a log line: cut at 100 bytes, control characters and quotes replaced by "?".
std::string ForLog(const std::string& text);

}  // namespace oculora

// For a unit that names itself once, as a constant kLogUnit.
#define HOST_LOG_ERROR(...) ::oculora::LogError(kLogUnit, __LINE__, __func__, __VA_ARGS__)
