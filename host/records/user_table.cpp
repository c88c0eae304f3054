// Users and their password hashes in the records.
#include <algorithm>

#include "records/database_impl.h"
#include "records/statement.h"
#include "records/user_row.h"

namespace oculora {
namespace {

// Names stand in logs, headers and on command lines.
bool IsUserName(const std::string& name) {
  return !name.empty() && name.size() <= 64 &&
         std::all_of(name.begin(), name.end(), [](unsigned char c) { return c > 0x20 && c != 0x7f; });
}

}  // namespace

std::optional<UserRecord> Database::FindUser(const std::string& name) {
  Statement select(*m_Impl, "SELECT " USER_COLUMNS " FROM users u WHERE u.name = ?");
  select.Bind(name);
  if (!select.Row()) return std::nullopt;
  return ReadUser(select);
}

std::optional<UserRecord> Database::FindUserByUid(int uid) {
  Statement select(*m_Impl, "SELECT " USER_COLUMNS " FROM users u WHERE u.uid = ?");
  select.Bind(uid);
  if (!select.Row()) return std::nullopt;
  return ReadUser(select);
}

std::vector<UserRecord> Database::ListUsers() {
  std::vector<UserRecord> users;
  Statement select(*m_Impl, "SELECT " USER_COLUMNS " FROM users u ORDER BY u.name");
  while (select.Row()) users.push_back(ReadUser(select));
  return users;
}

bool Database::AddUser(const UserRecord& user, const std::string& passwordHash) {
  if (!IsUserName(user.name)) {
    m_Impl->lastError = "a user's name has 1 to 64 characters, none of them a space or a control character";
    return false;
  }
  Transaction transaction(*m_Impl);
  if (!transaction.IsOpen()) return false;
  {
    // People are numbered from 1025 on: 1024 is the system itself.
    Statement upsert(*m_Impl,
                     "INSERT INTO users SELECT max(1024, ifnull(max(uid), 0)) + 1, ?1, ?2, ?3, ?4, ?5 FROM users "
                     "WHERE true ON CONFLICT (name) DO UPDATE SET password_hash = ?2, admin = ?3, app_privilege = ?4, "
                     "operations = ?5");
    upsert.Bind(user.name).Bind(passwordHash).Bind(user.admin).Bind(user.appPrivilege).Bind(user.operations);
    if (!upsert.Run()) return false;
  }
  // Whoever knew the old password is out.
  Statement sessions(*m_Impl, "DELETE FROM sessions WHERE uid = (SELECT uid FROM users WHERE name = ?)");
  return sessions.Bind(user.name).Run() && transaction.Commit();
}

std::optional<std::string> Database::PasswordHash(const std::string& name) {
  Statement select(*m_Impl, "SELECT password_hash FROM users WHERE name = ?");
  select.Bind(name);
  if (!select.Row()) return std::nullopt;
  return select.Text(0);
}

}  // namespace oculora
