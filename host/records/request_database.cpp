// The records as one request sees them: opened read-only, once, on first use.
#include "records/records.h"

namespace oculora {
namespace {

struct RequestRecords {
  std::string error;
  std::optional<Database> database;
  bool tried = false;
};

RequestRecords& TheRecords() {
  static RequestRecords records;
  return records;
}

}  // namespace

Database* RequestDatabase() {
  RequestRecords& records = TheRecords();
  if (!records.tried) {
    records.tried = true;
    records.database = Database::Open(Database::Mode::kReadOnly, &records.error);
  }
  return records.database ? &*records.database : nullptr;
}

std::string RequestDatabaseError() {
  const RequestRecords& records = TheRecords();
  if (!records.database) return records.error;
  return records.database->IsUnreadable() ? records.database->LastError() : std::string();
}

}  // namespace oculora
