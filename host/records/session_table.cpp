// Sessions of people logged in, and the brake on those who guess passwords.
#include <algorithm>

#include "records/database_impl.h"
#include "records/statement.h"
#include "records/user_row.h"

namespace oculora {
namespace {

constexpr int kWaitSeconds = 60;
constexpr int kForgetSeconds = 24 * 3600;

struct Failures {
  int count = 0;
  std::int64_t last = 0;
};

Failures ReadFailures(DatabaseImpl& database, const std::string& address, std::int64_t nowSeconds) {
  Statement select(database, "SELECT failures, last FROM login_failures WHERE address = ?");
  select.Bind(address);
  if (!select.Row()) return {};
  // A clock that was set back must not lock anyone out for longer.
  return {select.Int(0), std::min(select.Int64(1), nowSeconds)};
}

}  // namespace

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

std::optional<int> Database::BeginLogin(const std::string& address, std::int64_t nowSeconds) {
  Transaction transaction(*m_Impl);
  if (!transaction.IsOpen()) return std::nullopt;
  Statement old(*m_Impl, "DELETE FROM login_failures WHERE last <= ?");
  if (!old.Bind(nowSeconds - kForgetSeconds).Run()) return std::nullopt;
  const Failures failures = ReadFailures(*m_Impl, address, nowSeconds);
  const std::int64_t wait = failures.last + kWaitSeconds - nowSeconds;
  if (failures.count >= kFreeAttempts && wait > 0) return static_cast<int>(wait);
  Statement upsert(*m_Impl,
                   "INSERT INTO login_failures VALUES (?1, 1, ?2) "
                   "ON CONFLICT (address) DO UPDATE SET failures = failures + 1, last = ?2");
  if (!upsert.Bind(address).Bind(nowSeconds).Run() || !transaction.Commit()) return std::nullopt;
  return 0;
}

bool Database::ForgetLoginFailures(const std::string& address) {
  Statement remove(*m_Impl, "DELETE FROM login_failures WHERE address = ?");
  return remove.Bind(address).Run();
}

}  // namespace oculora
