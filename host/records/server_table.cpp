// Recording servers and settings in the records.
#include <algorithm>

#include "records/database_impl.h"
#include "records/statement.h"

namespace oculora {
namespace {

bool IsPrintable(const std::string& text) {
  return !text.empty() && text.size() <= 1024 &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c != 0x7f; });
}

}  // namespace

bool Database::AddServer(const ServerRecord& server) {
  if (server.id < 1 || !IsPrintable(server.name) || !IsPrintable(server.url) || !IsPrintable(server.secret)) {
    m_Impl->lastError =
        "a recording server has an id from 1 on, a name, a URL and a secret, without control characters";
    return false;
  }
  {
    Statement taken(*m_Impl, "SELECT id, name FROM servers WHERE id = ? OR name = ?");
    taken.Bind(server.id).Bind(server.name);
    if (taken.Row()) {
      m_Impl->lastError = "server " + std::to_string(taken.Int(0)) + " \"" + taken.Text(1) + "\" exists already";
      return false;
    }
  }
  Statement insert(*m_Impl, "INSERT INTO servers VALUES (?, ?, ?, ?)");
  return insert.Bind(server.id).Bind(server.name).Bind(server.url).Bind(server.secret).Run();
}

std::vector<ServerRecord> Database::ListServers() {
  std::vector<ServerRecord> servers;
  Statement select(*m_Impl, "SELECT id, name, url, secret FROM servers ORDER BY id");
  while (select.Row()) servers.push_back({select.Int(0), select.Text(1), select.Text(2), select.Text(3)});
  return servers;
}

std::string Database::GetSetting(const std::string& name, const std::string& defaultValue) {
  Statement select(*m_Impl, "SELECT value FROM settings WHERE name = ?");
  select.Bind(name);
  return select.Row() ? select.Text(0) : defaultValue;
}

bool Database::SetSetting(const std::string& name, const std::string& value) {
  Statement upsert(*m_Impl, "INSERT INTO settings VALUES (?1, ?2) ON CONFLICT (name) DO UPDATE SET value = ?2");
  return upsert.Bind(name).Bind(value).Run();
}

}  // namespace oculora
