// Comparing a server's cameras with ours.
#include "admin/server_cameras.h"

#include <algorithm>
#include <set>

#include "servers/clean_text.h"

namespace oculora {
namespace {

constexpr int kMaxCameraId = 262143;
constexpr std::size_t kMaxCameraName = 128;

// Ids and names that are in use.
struct Taken {
  std::set<int> ids;
  std::set<std::string> names;
};

// 0: there is none.
int TakeFreeId(Taken& taken) {
  int id = taken.ids.empty() ? 1 : *taken.ids.rbegin() + 1;
  if (id > kMaxCameraId) {
    for (id = 1; taken.ids.contains(id);) ++id;
  }
  if (id > kMaxCameraId) return 0;
  taken.ids.insert(id);
  return id;
}

std::string TakeFreeName(Taken& taken, const std::string& name, const std::string& server) {
  const std::string owner = CutText(server, kMaxServerName);
  std::string free = name;
  for (int n = 1; !taken.names.insert(free).second; ++n) {
    const std::string suffix = " (" + owner + (n > 1 ? " " + std::to_string(n) : "") + ")";
    free = CutText(name, kMaxCameraName - suffix.size()) + suffix;
  }
  return free;
}

bool HasProfilesOf(const CameraRecord& camera, const ToldCamera& told) {
  return camera.profiles.size() == kMobileProfile + 1 &&
         std::all_of(camera.profiles.begin(), camera.profiles.end(), [&](const ProfileRecord& profile) {
           return profile.fps == told.fps && profile.width == told.width && profile.height == told.height;
         });
}

// One stream serves every way of watching.
void SetProfiles(CameraRecord& camera, const ToldCamera& told) {
  camera.profiles.clear();
  for (int profile = 0; profile <= kMobileProfile; ++profile) {
    camera.profiles.push_back({.profile = profile, .fps = told.fps, .width = told.width, .height = told.height});
  }
}

// Makes `camera` what it shall be; whether that changes anything.
bool Update(CameraRecord& camera, const ToldCamera& told, std::string name) {
  const bool same = camera.name == name && camera.videoType == told.videoType && camera.enabled == told.enabled &&
                    HasProfilesOf(camera, told);
  if (same) return false;
  camera.name = std::move(name);
  camera.videoType = told.videoType;
  camera.enabled = told.enabled;
  SetProfiles(camera, told);
  return true;
}

}  // namespace

std::optional<SyncPlan> PlanSync(const ServerRecord& server, const std::vector<ToldCamera>& told,
                                 const std::vector<CameraRecord>& ours, std::string& reason) {
  SyncPlan plan;
  Taken taken;
  std::map<int, const CameraRecord*> known;  // by id there
  for (const CameraRecord& camera : ours) {
    taken.ids.insert(camera.id);
    if (camera.ownerNdId != server.id) {
      taken.names.insert(camera.name);
    } else if (!known.emplace(camera.idOnRec, &camera).second) {
      plan.changes.removed.push_back(camera);  // added twice by hand
    }
  }
  for (const ToldCamera& camera : told) {
    const auto row = known.find(camera.id);
    CameraRecord wanted;
    if (row != known.end()) wanted = *row->second;
    const bool changed = Update(wanted, camera, TakeFreeName(taken, camera.name, server.name));
    if (row == known.end()) {
      wanted.id = TakeFreeId(taken);
      wanted.ownerNdId = server.id;
      wanted.idOnRec = camera.id;
      if (wanted.id == 0) {
        reason = "this host has no more free camera ids";
        return std::nullopt;
      }
      plan.changes.added.push_back(wanted);
    } else {
      known.erase(row);
      if (changed) plan.changes.changed.push_back(wanted);
    }
    if (!camera.keys.first.empty()) plan.keys.emplace(wanted.id, camera.keys);
  }
  for (const auto& [id, camera] : known) plan.changes.removed.push_back(*camera);
  return plan;
}

}  // namespace oculora
