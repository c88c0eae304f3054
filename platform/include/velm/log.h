// The host's log: one function, the shared debug-log configuration, and the names of categories and levels.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <map>

enum LOG_TYPE : std::int32_t { LOG_TYPE_DEFAULT = 0 };

enum LOG_CATEG : std::int32_t { LOG_CATEG_DEFAULT = 0, LOG_CATEG_STREAM = 63, LOG_CATEG_COUNT = 64 };

// Lower is more severe. 3 and below are written by default.
enum LOG_LEVEL : std::int32_t {
  LOG_LEVEL_FATAL = 1,
  LOG_LEVEL_ALERT = 2,
  LOG_LEVEL_ERROR = 3,
  LOG_LEVEL_WARN = 4,
  LOG_LEVEL_INFO = 5,
  LOG_LEVEL_DEBUG = 6,
};

// The record every process of the host maps read-only. Byte positions are an interface.
struct DbgLogCfg {
  static constexpr int kMaxPids = 64;
  std::int32_t reserved0;
  std::int32_t levels[LOG_CATEG_COUNT];  // threshold of category C at byte 4 + 4 * C; of category 63 at byte 256
  std::int32_t systemLog;                // 1: lines go to the system log as well
  std::int32_t reserved1[447];
  std::int32_t pidCount;  // 0 or less: the thresholds apply to every process
  std::int32_t pids[kMaxPids];
};
static_assert(offsetof(DbgLogCfg, levels) + 63 * sizeof(std::int32_t) == 256);
static_assert(offsetof(DbgLogCfg, pidCount) == 2052);
static_assert(offsetof(DbgLogCfg, pids) == 2056);

extern "C++" {
extern const volatile DbgLogCfg* g_pDbgLogCfg;  // null until attached
extern std::int32_t g_DbgLogPid;                // this process's id as the gate caches it; 0 until needed
}

// Attaches g_pDbgLogCfg, or leaves it null when no configuration exists. Cheap to repeat; never blocks.
void ReinitDbgLogCfg();

// Writes one line to the host's log file and, when the host is set up so, the system log. `categ`, `level`, `unit` and
// `func` may be null. Returns 0, or -1 when the line could not be written (a full disk, say); never throws, and lines
// of different processes never mix. Thread-safe.
int QmVPrintf(LOG_TYPE type, const char* categ, const char* level, const char* unit, int line, const char* func,
              const char* format, va_list args) __attribute__((format(printf, 7, 0)));

// Names of an enumeration's values; the host's constructors fill it.
template <typename Enum>
struct QmEnum2StrMap : std::map<Enum, const char*> {
  QmEnum2StrMap();
};
template <>
QmEnum2StrMap<LOG_CATEG>::QmEnum2StrMap();
template <>
QmEnum2StrMap<LOG_LEVEL>::QmEnum2StrMap();
