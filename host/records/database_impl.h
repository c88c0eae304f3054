// What stands behind a Database: the connection, its prepared statements, the last error.
#pragma once

#include <sqlite3.h>

#include <string>
#include <utility>
#include <vector>

#include "records/records.h"

namespace oculora {

struct DatabaseImpl {
  DatabaseImpl() = default;
  ~DatabaseImpl();
  DatabaseImpl(const DatabaseImpl&) = delete;
  DatabaseImpl& operator=(const DatabaseImpl&) = delete;

  // Opens the file; 0 or an SQLite code, with the last error set.
  int Open(const char* file, int flags, int patienceMs = Database::kPatienceMs);
  // The prepared statement of a literal, made on first use; null on failure.
  sqlite3_stmt* Prepare(const char* sql);
  // Runs statements without results; false on failure.
  bool Execute(const char* sql);
  // Whether the last statement changed a row; if not, the last error says that `what` is missing.
  bool ChangedSomething(const std::string& what);
  // Sets the last error from an SQLite code and remembers whether the records as a whole are unreadable.
  void NoteError(int code);
  // Rolls a transaction back that a killed writer left behind; a read-only connection cannot do it.
  bool RecoverJournal() const;
  // What opening for writing does about records of an earlier version, done when a reader has met them.
  bool UpdateLate();

  std::string path;
  sqlite3* connection = nullptr;
  std::vector<std::pair<const char*, sqlite3_stmt*>> statements;
  std::string lastError;
  bool unreadable = false;
  bool checkSchemaLate = false;
};

struct Database::Impl : DatabaseImpl {};

// A transaction that is rolled back unless committed.
class Transaction {
 public:
  explicit Transaction(DatabaseImpl& database) : m_Database(database), m_Open(database.Execute("BEGIN IMMEDIATE")) {}
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  bool IsOpen() const { return m_Open; }
  bool Commit();

 private:
  DatabaseImpl& m_Database;
  bool m_Open;
};

}  // namespace oculora
