// The records of a mount or an archive, as one request sees them.
#include "records/request_storage.h"

#include "webapi/log_line.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "records/request_storage";

struct OpenStorage {
  StorageRecord record;
  std::optional<Database> database;
};

OpenStorage& TheStorage() {
  static OpenStorage storage;
  return storage;
}

void OpenRecordsOf(const StorageRecord& record, OpenStorage& storage) {
  std::string error;
  storage.record = record;
  storage.database = OpenStorageRecords(record.directory, &error);
  if (!storage.database) HOST_LOG_ERROR("%s", error.c_str());
}

}  // namespace

StorageInUse RequestStorage(StorageKind kind, int number) {
  Database* own = RequestDatabase();
  if (own == nullptr) return {};
  if (kind == StorageKind::kOwn) return {own, kVarDir};
  OpenStorage& storage = TheStorage();
  if (storage.record.kind != kind || storage.record.number != number || !storage.database) {
    const std::optional<StorageRecord> found = StorageTable(*own).Find(kind, number);
    if (!found) return {};
    OpenRecordsOf(*found, storage);
  }
  return {storage.database ? &*storage.database : nullptr, storage.record.directory};
}

}  // namespace oculora
