// Opening the records, making them, and saying in plain English what is wrong with them.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "records/database_impl.h"
#include "records/migrations.h"
#include "records/statement.h"
#include "schema.h"

namespace oculora {
namespace {

void SetError(std::string* target, std::string text) {
  if (target != nullptr) *target = std::move(text);
}

// A sentence for an SQLite code, for the person in front of the machine.
std::string Explain(int code, const std::string& path, const char* detail) {
  switch (code & 0xff) {
    case SQLITE_CANTOPEN:
      if (access(path.c_str(), F_OK) != 0) {
        return "the records " + path + " do not exist; make them with \"oculora init\"";
      }
      return "the records " + path + " cannot be opened (" + std::strerror(errno != 0 ? errno : EACCES) +
             "); check the permissions of the file and of its directory";
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
      return "the records " + path + " are damaged (" + detail + "); restore the file from a backup";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "the records " + path + " are locked by another program; try again";
    case SQLITE_FULL:
      return "the disk is full: the records " + path + " could not be written";
    case SQLITE_READONLY:
      return "the records " + path + " cannot be written (" + detail +
             "); run this as the user who owns the file, and check that its directory is writable";
    case SQLITE_IOERR:
      return "the records " + path + " cannot be read or written (" + detail + "); check the disk";
    default:
      return "the records " + path + ": " + detail;
  }
}

// Whether an SQLite code says that the records as a whole are out of reach, rather than that one change was refused.
bool IsUnreadable(int code) {
  switch (code & 0xff) {
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
    case SQLITE_FULL:
      return false;
    default:
      return true;
  }
}

// Makes an empty file that only its owner may read; SQLite gives its journal the same mode. 0 or errno.
int MakePrivateFile(const char* path) {
  const int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return errno == EEXIST ? 0 : errno;
  close(fd);
  return 0;
}

bool IsReader(Database::Mode mode) { return mode == Database::Mode::kReadOnly || mode == Database::Mode::kForeign; }

int OpenFlags(Database::Mode mode) {
  const int access = IsReader(mode) ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  return access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
}

// The version the records carry; 0 for an empty file, -1 on failure.
int ReadVersion(DatabaseImpl& database) {
  {
    Statement tables(database, "SELECT count(*) FROM sqlite_master");
    if (!tables.Row()) return -1;
    if (tables.Int(0) == 0) return 0;
  }
  Statement version(database, "SELECT version FROM version");
  return version.Row() ? version.Int(0) : -1;
}

void NoteTooNew(DatabaseImpl& database, int version) {
  database.lastError = "the records " + database.path + " have version " + std::to_string(version) +
                       ", this program knows version " + std::to_string(kSchemaVersion) + "; use the newer program";
}

// Makes the schema in an empty file, or brings an earlier one up to date.
bool UpdateSchema(DatabaseImpl& database) {
  Transaction transaction(database);
  if (!transaction.IsOpen()) return false;
  // Several programs may have met here: only the first finds something to do.
  const int version = ReadVersion(database);
  if (version == kSchemaVersion) return true;
  if (version > kSchemaVersion) NoteTooNew(database, version);
  if (version < 0 || version > kSchemaVersion) return false;
  return (version == 0 ? database.Execute(kSchemaSql) : Migrate(database, version)) && transaction.Commit();
}

bool CheckSchema(DatabaseImpl& database, bool create) {
  const int version = ReadVersion(database);
  if (version == kSchemaVersion) return true;
  if (version > 0 && version < kSchemaVersion) return UpdateSchema(database);
  if (version == 0) {
    if (create) return UpdateSchema(database);
    database.lastError = "the records " + database.path + " are empty; make them with \"oculora init\"";
  } else if (version > 0) {
    NoteTooNew(database, version);
  }
  return false;
}

}  // namespace

DatabaseImpl::~DatabaseImpl() {
  for (const auto& [sql, statement] : statements) sqlite3_finalize(statement);
  sqlite3_close(connection);
}

int DatabaseImpl::Open(const char* file, int flags, int patienceMs) {
  path = file;
  errno = 0;
  const int code = sqlite3_open_v2(file, &connection, flags, nullptr);
  if (code != SQLITE_OK) {
    NoteError(code);
    return code;
  }
  sqlite3_busy_timeout(connection, patienceMs);
  return SQLITE_OK;
}

sqlite3_stmt* DatabaseImpl::Prepare(const char* sql) {
  for (const auto& [text, statement] : statements) {
    if (text == sql) return statement;
  }
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
  if (code == SQLITE_READONLY_ROLLBACK && RecoverJournal()) {
    code = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
  }
  // A table or column that is missing: the records are of another version.
  if (code == SQLITE_ERROR && checkSchemaLate) {
    if (!UpdateLate()) return nullptr;
    code = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
  }
  if (code != SQLITE_OK) {
    NoteError(code);
    return nullptr;
  }
  statements.emplace_back(sql, statement);
  return statement;
}

bool DatabaseImpl::Execute(const char* sql) {
  const int code = sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) NoteError(code);
  return code == SQLITE_OK;
}

bool DatabaseImpl::ChangedSomething(const std::string& what) {
  if (sqlite3_changes(connection) > 0) return true;
  lastError = "there is no " + what;
  return false;
}

void DatabaseImpl::NoteError(int code) {
  lastError = Explain(code, path, connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(code));
  if (IsUnreadable(code)) unreadable = true;
}

bool DatabaseImpl::RecoverJournal() const {
  DatabaseImpl writer;
  return writer.Open(path.c_str(), OpenFlags(Database::Mode::kReadWrite)) == SQLITE_OK &&
         writer.Execute("SELECT count(*) FROM sqlite_master");
}

bool DatabaseImpl::UpdateLate() {
  checkSchemaLate = false;
  DatabaseImpl writer;
  if (writer.Open(path.c_str(), OpenFlags(Database::Mode::kReadWrite)) == SQLITE_OK && CheckSchema(writer, false)) {
    return true;
  }
  lastError = writer.lastError;
  unreadable = true;
  return false;
}

Transaction::~Transaction() {
  if (m_Open) sqlite3_exec(m_Database.connection, "ROLLBACK", nullptr, nullptr, nullptr);
}

bool Transaction::Commit() {
  if (!m_Open || !m_Database.Execute("COMMIT")) return false;
  m_Open = false;
  return true;
}

Database::Database(std::unique_ptr<Impl> impl) : m_Impl(std::move(impl)) {}
Database::~Database() = default;
Database::Database(Database&&) noexcept = default;
Database& Database::operator=(Database&&) noexcept = default;

std::optional<Database> Database::Open(Mode mode, std::string* error, const char* path, int patienceMs) {
  if (mode == Mode::kCreate) {
    if (const int code = MakePrivateFile(path); code != 0) {
      SetError(error, "the records " + std::string(path) + " cannot be made (" + std::strerror(code) +
                          "); check that the directory exists and is writable");
      return std::nullopt;
    }
  }
  auto impl = std::make_unique<Impl>();
  bool good = impl->Open(path, OpenFlags(mode), patienceMs) == SQLITE_OK;
  // Requests skip this: they find out with their first question, at no extra cost.
  impl->checkSchemaLate = mode == Mode::kReadOnly;
  if (good && !IsReader(mode)) {
    good = CheckSchema(*impl, mode == Mode::kCreate) && impl->Execute("PRAGMA foreign_keys = ON");
  }
  if (!good) {
    SetError(error, impl->lastError);
    return std::nullopt;
  }
  return Database(std::move(impl));
}

const std::string& Database::LastError() const { return m_Impl->lastError; }

bool Database::IsUnreadable() const { return m_Impl->unreadable; }

std::int64_t Database::DataVersion() {
  Statement version(*m_Impl, "PRAGMA data_version");
  return version.Row() ? version.Int64(0) : 0;
}

}  // namespace oculora
