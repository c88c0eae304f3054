// The log gate.
#include "qmlog.h"

#include <unistd.h>

namespace {

constexpr int kDefaultLevel = 3;

bool IsListed(const volatile DbgLogCfg& config, int count) {
  for (int i = 0; i < count && i < DbgLogCfg::kMaxPids; ++i) {
    if (config.pids[i] == g_DbgLogPid) return true;
  }
  return false;
}

}  // namespace

int QmPrintf(LOG_TYPE type, const char* categ, const char* level, const char* unit, int line, const char* func,
             const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = QmVPrintf(type, categ, level, unit, line, func, format, args);
  va_end(args);
  return result;
}

bool LogLevelEnabled(int level) {
  if (g_pDbgLogCfg == nullptr) ReinitDbgLogCfg();
  if (g_pDbgLogCfg == nullptr) return level <= kDefaultLevel;
  const volatile DbgLogCfg& config = *g_pDbgLogCfg;
  const int threshold = config.levels[LOG_CATEG_STREAM];
  const int count = config.pidCount;
  if (count <= 0) return level <= threshold;
  if (g_DbgLogPid == 0) {
    g_DbgLogPid = getpid();
    // The administrator may have lifted the limit meanwhile: this line then falls back to the default.
    if (config.pidCount <= 0) return level <= kDefaultLevel;
  }
  return level <= (IsListed(config, count) ? threshold : kDefaultLevel);
}
