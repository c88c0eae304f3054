// The records of a mount or an archive, as one request sees them.
#pragma once

#include "records/storages.h"

namespace oculora {

struct StorageInUse {
  Database* records = nullptr;  // null: no such storage, or its records cannot be read
  std::string directory;
};

// Opened read-only with the first question for it and kept for the next ones: a request deals with one storage. The
// records live until another storage is asked for. For kOwn these are RequestDatabase. Not thread-safe.
StorageInUse RequestStorage(StorageKind kind, int number);

}  // namespace oculora
