// One prepared statement of a records database.
#include "records/statement.h"

#include "records/database_impl.h"

namespace oculora {

Statement::Statement(DatabaseImpl& database, const char* sql)
    : m_Database(database), m_Statement(database.Prepare(sql)), m_Failed(m_Statement == nullptr) {}

Statement::~Statement() {
  if (m_Statement != nullptr) {
    sqlite3_reset(m_Statement);
    sqlite3_clear_bindings(m_Statement);
  }
}

Statement& Statement::Bind(std::int64_t value) {
  if (m_Statement != nullptr) sqlite3_bind_int64(m_Statement, m_NextParameter++, value);
  return *this;
}

Statement& Statement::Bind(std::string_view value) {
  if (m_Statement != nullptr) {
    sqlite3_bind_text64(m_Statement, m_NextParameter++, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  return *this;
}

Statement& Statement::BindNull() {
  if (m_Statement != nullptr) sqlite3_bind_null(m_Statement, m_NextParameter++);
  return *this;
}

int Statement::Step() {
  int code = sqlite3_step(m_Statement);
  if (!m_Stepped && code == SQLITE_READONLY_ROLLBACK && m_Database.RecoverJournal()) {
    sqlite3_reset(m_Statement);
    code = sqlite3_step(m_Statement);
  }
  m_Stepped = true;
  return code;
}

bool Statement::Row() {
  if (m_Failed) return false;
  const int code = Step();
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) {
    m_Failed = true;
    m_Database.NoteError(code);
  }
  return false;
}

bool Statement::Run() {
  while (Row()) {
  }
  return !m_Failed;
}

std::int64_t Statement::Int64(int column) const { return sqlite3_column_int64(m_Statement, column); }

bool Statement::IsNull(int column) const { return sqlite3_column_type(m_Statement, column) == SQLITE_NULL; }

std::string Statement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_Statement, column));
  if (text == nullptr) return {};
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(m_Statement, column))};
}

}  // namespace oculora
