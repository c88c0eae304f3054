// The module's log gate and its variadic way into the host's log.
//
// A levelled line goes through QM_LOG: the gate first, then names and formatting, so that a line nobody wants costs one
// comparison. A line that must always reach the host goes through QM_LOG_ALWAYS, with no category, level or gate.
// Each unit names itself once, as a constant kLogUnit in its internal header, and both macros use that name.
#pragma once

#include <cstdarg>

#include "velm/log.h"

// The name of an enumeration value as the host lists it; "unknown" for a value it does not list.
template <typename Enum>
const char* Enum2String(Enum value) {
  static const QmEnum2StrMap<Enum> names;
  const auto found = names.find(value);
  return found == names.end() ? "unknown" : found->second;
}

// Packs the variable arguments for QmVPrintf and returns its result.
int QmPrintf(LOG_TYPE type, const char* categ, const char* level, const char* unit, int line, const char* func,
             const char* format, ...) __attribute__((format(printf, 7, 8)));

// Whether lines of `level` are written by this process: against the threshold of category 63 when the shared
// configuration applies to this process, against 3 otherwise. Takes no lock.
bool LogLevelEnabled(int level);

#define QM_LOG(level, ...) QM_LOG_AS(__func__, level, __VA_ARGS__)

// `func` is named by the caller where the line's function name is fixed: a helper logs as the operation it belongs to.
#define QM_LOG_AS(func, level, ...)                                                                                   \
  do {                                                                                                                \
    if (LogLevelEnabled(level)) {                                                                                     \
      QmPrintf(LOG_TYPE_DEFAULT, Enum2String(LOG_CATEG_STREAM), Enum2String(static_cast<LOG_LEVEL>(level)), kLogUnit, \
               __LINE__, func, __VA_ARGS__);                                                                          \
    }                                                                                                                 \
  } while (false)

#define QM_LOG_ALWAYS(func, ...) QmPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, kLogUnit, __LINE__, func, __VA_ARGS__)
