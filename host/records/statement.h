// One prepared statement of a records database: binding, stepping, reading columns.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3_stmt;

namespace oculora {

struct DatabaseImpl;

// Borrows a prepared statement from the database's cache and resets it on destruction, so that no read lock outlives
// the use. Use one statement text at a time. Every failure ends up in the database's last error; none throws.
class Statement {
 public:
  // `sql` must be a string literal: its address is the key of the cache.
  Statement(DatabaseImpl& database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Binds the next parameter. Text is not copied: it must live until the last step.
  Statement& Bind(std::int64_t value);
  Statement& Bind(std::string_view value);
  Statement& BindNull();

  bool Row();  // steps; true when there is a row to read
  bool Run();  // steps a statement without rows; true on success
  bool Failed() const { return m_Failed; }

  // Columns of the row, from 0.
  std::int64_t Int64(int column) const;
  int Int(int column) const { return static_cast<int>(Int64(column)); }
  bool Bool(int column) const { return Int64(column) != 0; }
  bool IsNull(int column) const;
  std::string Text(int column) const;

 private:
  int Step();

  DatabaseImpl& m_Database;
  sqlite3_stmt* m_Statement = nullptr;
  int m_NextParameter = 1;
  bool m_Stepped = false;
  bool m_Failed = false;
};

}  // namespace oculora
