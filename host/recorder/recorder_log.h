// Log lines of the recorder: a line for each change of state, in the host's log.
#pragma once

namespace oculora {

// Writes one line whatever the thresholds say; the recorder says little. Nothing passed here may hold a source address
// with its password.
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace oculora
