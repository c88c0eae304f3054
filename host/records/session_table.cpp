// Sessions of people logged in.
#include "records/database_impl.h"
#include "records/statement.h"
#include "records/user_row.h"

namespace oculora {

std::optional<SessionRecord> Database::FindSession(const std::string& id, std::int64_t nowSeconds) {
  Statement select(*m_Impl, "SELECT " USER_COLUMNS
                            " FROM sessions s JOIN users u ON u.uid = s.uid WHERE s.id = ? AND s.expires > ?");
  select.Bind(id).Bind(nowSeconds);
  if (!select.Row()) return std::nullopt;
  return SessionRecord{id, ReadUser(select)};
}

bool Database::AddSession(const std::string& id, int uid, std::int64_t nowSeconds, std::int64_t expiresSeconds) {
  Statement insert(*m_Impl, "INSERT INTO sessions VALUES (?, ?, ?, ?)");
  return insert.Bind(id).Bind(uid).Bind(nowSeconds).Bind(expiresSeconds).Run();
}

bool Database::RemoveSession(const std::string& id) {
  Statement remove(*m_Impl, "DELETE FROM sessions WHERE id = ?");
  return remove.Bind(id).Run() && m_Impl->ChangedSomething("such session");
}

bool Database::RemoveExpiredSessions(std::int64_t nowSeconds) {
  Statement remove(*m_Impl, "DELETE FROM sessions WHERE expires <= ?");
  return remove.Bind(nowSeconds).Run();
}

}  // namespace oculora
