// Objects that hold a large library and are loaded on first use: each exports one function that returns a table of
// functions, whose first field is its version.
#pragma once

#include <cstdint>

namespace oculora {

struct TableObject {
  const char* logUnit;
  const char* name;      // for the log
  const char* file;      // beside the host library
  const char* function;  // returns the table; null when the object cannot start
  std::uint32_t version;
};

// Loads the object for good and returns its table. Null, with one log line, when it cannot be loaded, cannot start or
// is of another version. Blocks on the disk.
const void* LoadObjectTable(const TableObject& object);

}  // namespace oculora
