// What this host tells the central host that manages it.
#include <ctime>

#include "admission/pair_match.h"
#include "records/camera_json.h"
#include "relay/stream_key.h"
#include "servers/host_name.h"
#include "servers/servers.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

Json::Value DescribeKeys(int camId) {
  Json::Value list(Json::arrayValue);
  StreamKeys keys;
  if (!LoadStreamKeys(0, camId, keys)) return list;
  list.append(keys.first);
  list.append(keys.second);
  return list;
}

Json::Value DescribeCameras(Database& records, const CameraDescriber& describer) {
  Json::Value list(Json::arrayValue);
  for (const CameraRecord& camera : records.ListCameras()) {
    if (camera.ownerNdId != 0 || camera.deleting) continue;
    Json::Value item = describer.Describe(camera);
    // As declared: a measured rate changes, and is of no use elsewhere.
    const ProfileRecord live = camera.MobileProfile();
    item["fps"] = live.fps;
    item["width"] = live.width;
    item["height"] = live.height;
    item["keys"] = DescribeKeys(camera.id);
    list.append(std::move(item));
  }
  return list;
}

}  // namespace

void DescribeServer(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!IsPairedPeer(*request)) {
    response->SetError(kErrNotAllowed, "only the host that manages this one may ask");
    return;
  }
  Database* records = RequestDatabase();
  if (records == nullptr) return;
  const CameraDescriber describer(*records);
  Json::Value data;
  data["name"] = HostName();
  data["version"] = OCULORA_VERSION;
  data["time"] = Json::Int64{std::time(nullptr)};
  data["recorder"] = describer.RecorderRuns();
  data["cameras"] = DescribeCameras(*records, describer);
  // A list that was cut short would take cameras away from the other host.
  if (records->IsUnreadable()) {
    response->SetError(kErrRecords, "the records of this system cannot be read");
    return;
  }
  response->SetSuccess(data);
}

}  // namespace oculora
