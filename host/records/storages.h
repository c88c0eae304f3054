// Storages: directories that hold records and recordings. The site's own, and mounts and archives beside it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "records/records.h"

namespace oculora {

enum class StorageKind : int { kOwn = 0, kMount = 1, kArchive = 2 };

struct StorageRecord {
  StorageKind kind = StorageKind::kOwn;
  int number = 0;         // as requests name it
  std::string directory;  // absolute
};

// A view of a database, which must outlive it. Fails as Database does.
class StorageTable {
 public:
  explicit StorageTable(Database& database);

  std::optional<StorageRecord> Find(StorageKind kind, int number);
  std::vector<StorageRecord> List();
  bool Add(const StorageRecord& storage);
  bool Remove(StorageKind kind, int number);

 private:
  struct DatabaseImpl& m_Database;
};

// The records of a mount or an archive, to be read as they are; nothing, with a sentence, when they cannot be.
std::optional<Database> OpenStorageRecords(const std::string& directory, std::string* error);

// The records and the recordings in a storage's directory.
std::string RecordsPathIn(const std::string& directory);
std::string RecordingsDirIn(const std::string& directory);

}  // namespace oculora
