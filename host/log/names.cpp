// Names of log categories and levels.
#include "velm/log.h"

template <>
QmEnum2StrMap<LOG_CATEG>::QmEnum2StrMap() {
  emplace(LOG_CATEG_DEFAULT, "default");
  emplace(LOG_CATEG_STREAM, "stream");
}

template <>
QmEnum2StrMap<LOG_LEVEL>::QmEnum2StrMap() {
  emplace(LOG_LEVEL_FATAL, "FATAL");
  emplace(LOG_LEVEL_ALERT, "ALERT");
  emplace(LOG_LEVEL_ERROR, "ERROR");
  emplace(LOG_LEVEL_WARN, "WARN");
  emplace(LOG_LEVEL_INFO, "INFO");
  emplace(LOG_LEVEL_DEBUG, "DEBUG");
}
