// The records as a process that runs for months holds them: opened again after trouble.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "records/records.h"

namespace oculora {

// One thread. Opening is tried at most once a second.
class RecordsLink {
 public:
  // The records, open for writing; null while they cannot be had.
  Database* Get();
  // Whether somebody else changed them since the last call, or they were opened again. False while they cannot be had.
  bool Changed();

 private:
  std::optional<Database> m_Records;
  ino_t m_File = 0;  // another one: restored from a copy
  std::int64_t m_Version = -1;
  std::int64_t m_RetryAtUs = 0;
  bool m_Reopened = false;
};

}  // namespace oculora
