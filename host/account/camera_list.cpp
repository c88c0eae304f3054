// The list of cameras as a viewer may see it.
#include <map>

#include "account/account.h"
#include "records/camera_json.h"
#include "velm/admission.h"

namespace oculora {
namespace {

constexpr int kErrNoSession = 105;

bool MayWatch(const VELM::APIRequest& request) {
  const PrivProfile profile = PrivProfileGetByUid(request.GetLoginUID());
  return profile.IsOperAllow(PRIV_OPER_LIVE) || profile.IsOperAllow(PRIV_OPER_PLAYBACK);
}

using ServerNames = std::map<int, std::string>;

ServerNames LoadServerNames(Database& records) {
  ServerNames names;
  for (ServerRecord& server : records.ListServers()) names.emplace(server.id, std::move(server.name));
  return names;
}

void AddServer(Json::Value& item, int owner, const ServerNames& servers) {
  item["remote"] = owner != 0;
  if (owner == 0) return;
  const auto name = servers.find(owner);
  item["server"] = owner;
  item["serverName"] = name == servers.end() ? "" : name->second;
}

}  // namespace

// Someone who may watch nothing sees an empty list.
void ListCameras(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!request->IsAuthorized()) {
    response->SetError(kErrNoSession, "not logged in");
    return;
  }
  Json::Value data;
  data["cameras"] = Json::Value(Json::arrayValue);
  Database* database = RequestDatabase();
  if (database != nullptr && MayWatch(*request)) {
    const CameraDescriber describer(*database);
    const ServerNames servers = LoadServerNames(*database);
    for (const CameraRecord& camera : database->ListCameras()) {
      if (camera.deleting) continue;
      Json::Value item = describer.Describe(camera);
      AddServer(item, camera.ownerNdId, servers);
      data["cameras"].append(std::move(item));
    }
  }
  response->SetSuccess(data);
}

}  // namespace oculora
