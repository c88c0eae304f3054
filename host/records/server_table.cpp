// Recording servers and settings in the records.
#include <algorithm>

#include "records/camera_rows.h"
#include "records/database_impl.h"
#include "records/servers.h"
#include "records/statement.h"

namespace oculora {
namespace {

constexpr char kCms[] = "cms";
constexpr char kPairSecret[] = "pair_secret";
constexpr char kPairName[] = "pair_name";

bool IsPrintable(const std::string& text, std::size_t most) {
  return !text.empty() && text.size() <= most &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c != 0x7f; });
}

// Whether a server's values may be stored; if not, the last error says why.
bool CheckServer(DatabaseImpl& database, const ServerRecord& server) {
  constexpr std::size_t kMaxText = 1024;
  if (server.id > 0 && IsPrintable(server.name, kMaxServerName) && IsPrintable(server.url, kMaxText) &&
      IsPrintable(server.secret, kMaxText)) {
    return true;
  }
  database.lastError =
      "a recording server has an id from 1 on, a name of at most 64 characters, an address and a secret, without "
      "control "
      "characters";
  return false;
}

// Whether neither id nor name is in use; by server `but` they may be.
bool CheckFree(DatabaseImpl& database, const ServerRecord& server, int but) {
  Statement taken(database, "SELECT id, name FROM servers WHERE (id = ? OR name = ?) AND id <> ?");
  if (!taken.Bind(server.id).Bind(server.name).Bind(but).Row()) return !taken.Failed();
  database.lastError = "server " + std::to_string(taken.Int(0)) + " \"" + taken.Text(1) + "\" exists already";
  return false;
}

// Whether any row is there.
bool IsThere(DatabaseImpl& database, const char* sql) {
  Statement select(database, sql);
  return select.Row();
}

// Moves names out of the way: one may go from one camera to another. No camera's own name has a control character.
bool ParkNames(DatabaseImpl& database, const std::vector<CameraRecord>& cameras) {
  for (const CameraRecord& camera : cameras) {
    Statement park(database, "UPDATE cameras SET name = char(1) || id WHERE id = ?");
    if (!park.Bind(camera.id).Run()) return false;
  }
  return true;
}

}  // namespace

bool IsPairSecret(const std::string& secret) {
  return secret.size() >= kMinPairSecret && secret.size() <= kMaxPairSecret &&
         std::all_of(secret.begin(), secret.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

std::optional<ServerRecord> ServerTable::Find(int id) {
  Statement select(*m_Database.m_Impl, "SELECT id, name, url, secret FROM servers WHERE id = ?");
  if (!select.Bind(id).Row()) return std::nullopt;
  return ServerRecord{select.Int(0), select.Text(1), select.Text(2), select.Text(3)};
}

bool ServerTable::Store(const ServerRecord& server, bool replace) {
  DatabaseImpl& database = *m_Database.m_Impl;
  Transaction transaction(database);
  if (!transaction.IsOpen() || !CheckServer(database, server)) return false;
  if (!CheckFree(database, server, replace ? server.id : 0)) return false;
  // The name may change; REPLACE does not suit, because it would take the row of another server of that name away.
  Statement upsert(database,
                   "INSERT INTO servers VALUES (?1, ?2, ?3, ?4) "
                   "ON CONFLICT (id) DO UPDATE SET name = ?2, url = ?3, secret = ?4");
  upsert.Bind(server.id).Bind(server.name).Bind(server.url).Bind(server.secret);
  return upsert.Run() && m_Database.SetSetting(kCms, "1") && transaction.Commit();
}

bool ServerTable::Remove(int id) {
  DatabaseImpl& database = *m_Database.m_Impl;
  Transaction transaction(database);
  if (!transaction.IsOpen()) return false;
  for (const CameraRecord& camera : m_Database.ListCameras()) {
    if (camera.ownerNdId == id && !DeleteCameraRow(database, camera.id)) return false;
  }
  {
    Statement remove(database, "DELETE FROM servers WHERE id = ?");
    if (!remove.Bind(id).Run() || !database.ChangedSomething("server " + std::to_string(id))) return false;
  }
  const bool central = IsThere(database, "SELECT 1 FROM servers LIMIT 1");
  return (central || m_Database.SetSetting(kCms, "0")) && transaction.Commit();
}

bool ServerTable::Apply(int server, const CameraChanges& changes) {
  DatabaseImpl& database = *m_Database.m_Impl;
  Transaction transaction(database);
  if (!transaction.IsOpen()) return false;
  if (!Find(server)) {
    database.lastError = "there is no server " + std::to_string(server);
    return false;
  }
  for (const CameraRecord& camera : changes.removed) {
    if (!DeleteCameraRow(database, camera.id)) return false;
  }
  if (!ParkNames(database, changes.changed)) return false;
  for (const CameraRecord& camera : changes.changed) {
    if (!ChangeRemoteCameraRow(database, camera)) return false;
  }
  for (const CameraRecord& camera : changes.added) {
    if (!InsertCameraRow(database, camera)) return false;
  }
  return transaction.Commit();
}

CentralRecord ServerTable::Central() {
  return {m_Database.GetSetting(kPairName, ""), m_Database.GetSetting(kPairSecret, "")};
}

bool ServerTable::SetCentral(const CentralRecord& central, bool replace) {
  DatabaseImpl& database = *m_Database.m_Impl;
  Transaction transaction(database);
  if (!transaction.IsOpen()) return false;
  const CentralRecord before = Central();
  if (!replace && !before.secret.empty() && before.secret != central.secret) {
    database.lastError = "this host is paired already" + (before.name.empty() ? "" : " with \"" + before.name + "\"");
    return false;
  }
  return m_Database.SetSetting(kPairSecret, central.secret) && m_Database.SetSetting(kPairName, central.name) &&
         transaction.Commit();
}

bool Database::AddServer(const ServerRecord& server) {
  if (!CheckServer(*m_Impl, server) || !CheckFree(*m_Impl, server, 0)) return false;
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
