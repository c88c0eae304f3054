// Reading the cameras of a recording server into the records.
#pragma once

#include <string>

#include "records/records.h"

namespace oculora {

// Asks the server for its cameras, brings rows and stream keys up to date, and prints what changed. Empty when done;
// otherwise a sentence, and nothing was changed unless it says so. Blocks for 10 s at most while the server is silent.
std::string SyncServer(Database& records, const ServerRecord& server);

}  // namespace oculora
