// The recording servers of this host, and how their cameras are doing.
#include <map>
#include <utility>

#include "records/records.h"
#include "servers/asking.h"
#include "servers/servers.h"
#include "velm/admission.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr int kTotalSeconds = 4;

bool MayWatch(const VELM::APIRequest& request) {
  const PrivProfile profile = PrivProfileGetByUid(request.GetLoginUID());
  return profile.IsOperAllow(PRIV_OPER_LIVE) || profile.IsOperAllow(PRIV_OPER_PLAYBACK);
}

// Our ids of servers' cameras, by server and id there.
using CameraIds = std::map<std::pair<int, int>, int>;

CameraIds LoadCameraIds(Database& records) {
  CameraIds ids;
  for (const CameraRecord& camera : records.ListCameras()) {
    if (camera.ownerNdId != 0 && !camera.deleting) ids.emplace(std::pair(camera.ownerNdId, camera.idOnRec), camera.id);
  }
  return ids;
}

Json::Value DescribeCamera(const ToldCamera& camera, int id) {
  Json::Value item;
  item["id"] = id;
  item["state"] = camera.state;
  item["reason"] = camera.reason;
  item["recording"]["mode"] = camera.recordingMode;
  item["recording"]["state"] = camera.recordingState;
  item["recording"]["reason"] = camera.recordingReason;
  return item;
}

Json::Value DescribeState(const ServerState& state, const CameraIds& ids, bool admin) {
  Json::Value item;
  item["id"] = state.server.id;
  item["name"] = state.server.name;
  if (admin) item["url"] = state.server.url;
  item["state"] = state.told ? "up" : "down";
  item["reason"] = state.reason;
  item["cameras"] = Json::Value(Json::arrayValue);
  if (!state.told) return item;
  for (const ToldCamera& camera : state.told->cameras) {
    const auto id = ids.find({state.server.id, camera.id});
    if (id != ids.end()) item["cameras"].append(DescribeCamera(camera, id->second));
  }
  return item;
}

}  // namespace

// Someone who may watch nothing sees an empty list.
void ListServers(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!request->IsAuthorized()) {
    response->SetError(kErrNotAllowed, "not logged in");
    return;
  }
  Json::Value data;
  data["servers"] = Json::Value(Json::arrayValue);
  Database* records = RequestDatabase();
  if (records == nullptr) return;
  if (MayWatch(*request)) {
    const std::vector<ServerRecord> servers = records->ListServers();
    const CameraIds ids = LoadCameraIds(*records);
    if (records->IsUnreadable()) {
      response->SetError(kErrRecords, "the records of this system cannot be read");
      return;
    }
    for (const ServerState& state : AskServers(servers, kTotalSeconds)) {
      data["servers"].append(DescribeState(state, ids, request->IsAdmin()));
    }
  }
  response->SetSuccess(data);
}

}  // namespace oculora
