// Storages in the records, and the records of storages.
#include <unistd.h>

#include "records/database_impl.h"
#include "records/statement.h"
#include "records/storages.h"

namespace oculora {
namespace {

StorageRecord ReadStorage(const Statement& row) {
  return {static_cast<StorageKind>(row.Int(0)), row.Int(1), row.Text(2)};
}

}  // namespace

StorageTable::StorageTable(Database& database) : m_Database(*database.m_Impl) {}

std::optional<StorageRecord> StorageTable::Find(StorageKind kind, int number) {
  Statement select(m_Database, "SELECT kind, number, directory FROM storages WHERE kind = ? AND number = ?");
  if (!select.Bind(static_cast<int>(kind)).Bind(number).Row()) return std::nullopt;
  return ReadStorage(select);
}

std::vector<StorageRecord> StorageTable::List() {
  std::vector<StorageRecord> storages;
  Statement select(m_Database, "SELECT kind, number, directory FROM storages ORDER BY kind, number");
  while (select.Row()) storages.push_back(ReadStorage(select));
  return storages;
}

bool StorageTable::Add(const StorageRecord& storage) {
  Statement insert(m_Database, "INSERT INTO storages VALUES (?, ?, ?)");
  return insert.Bind(static_cast<int>(storage.kind)).Bind(storage.number).Bind(storage.directory).Run();
}

bool StorageTable::Remove(StorageKind kind, int number) {
  Statement remove(m_Database, "DELETE FROM storages WHERE kind = ? AND number = ?");
  return remove.Bind(static_cast<int>(kind)).Bind(number).Run() &&
         m_Database.ChangedSomething("storage " + std::to_string(number));
}

std::optional<Database> OpenStorageRecords(const std::string& directory, std::string* error) {
  const std::string path = RecordsPathIn(directory);
  if (access(path.c_str(), F_OK) != 0) {
    *error = path + " is missing; is the disk connected?";
    return std::nullopt;
  }
  return Database::Open(Database::Mode::kForeign, error, path.c_str());
}

}  // namespace oculora
