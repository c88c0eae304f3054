// Which host this is, which recording servers it manages, who owns a camera.
#include "records/records.h"
#include "velm/relay.h"

bool IsCmsHost() {
  // Asked several times in a request; the answer does not change within one.
  static const bool isCms = [] {
    oculora::Database* database = oculora::RequestDatabase();
    return database != nullptr && database->GetSetting("cms", "0") == "1";
  }();
  return isCms;
}

int GetCamOwnerNdId(int camId) {
  oculora::Database* database = oculora::RequestDatabase();
  if (database == nullptr) return 0;
  const auto camera = database->LoadCamera(camId);
  return camera ? camera->ownerNdId : 0;
}

SlaveNdMgr::SlaveNdMgr(bool readOnly) : m_ReadOnly(readOnly) {}

// The records know no disabled, locked or deleted servers: what is listed there is managed. A request reads them
// without a lock in any case.
std::map<int, SlaveNd> SlaveNdMgr::GetSlaveNdMap(bool /*withDisabled*/, bool /*withLocked*/, bool /*withDeleted*/) {
  std::map<int, SlaveNd> servers;
  oculora::Database* database = oculora::RequestDatabase();
  if (database == nullptr) return servers;
  for (oculora::ServerRecord& server : database->ListServers()) {
    servers[server.id] = {server.id, std::move(server.name), std::move(server.url)};
  }
  return servers;
}
