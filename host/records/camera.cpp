// Camera records of the platform interface, read from the records of this host or of a mount.
#include "velm/camera.h"

#include "records/request_storage.h"

int Camera::Load(int id, int mountId, int /*flags*/) {
  if (id < 1) return -1;
  oculora::Database* database =
      mountId > 0 ? oculora::RequestStorage(oculora::StorageKind::kMount, mountId).records : oculora::RequestDatabase();
  if (database == nullptr) return -1;
  std::optional<oculora::CameraRecord> record = database->LoadCamera(id);
  if (!record) return -1;

  m_Id = record->id;
  m_Name = std::move(record->name);
  m_OwnerNdId = record->ownerNdId;
  m_IdOnRec = record->idOnRec;
  m_VideoType = record->videoType;
  m_MobileProfile = oculora::kMobileProfile;
  m_Enabled = record->enabled;
  m_Deleting = record->deleting;
  for (Profile& profile : m_Profiles) profile = Profile{};
  for (const oculora::ProfileRecord& profile : record->profiles) {
    if (profile.profile < 0 || profile.profile >= kProfiles) continue;
    m_Profiles[profile.profile] = {profile.streamNo, {profile.KnownFps(), profile.width, profile.height}};
  }
  return 0;
}

int Camera::GetUiStreamNo(int profile) const {
  return profile >= 0 && profile < kProfiles ? m_Profiles[profile].streamNo : 0;
}

StreamSetting Camera::GetStreamSetting(int profile) const {
  return profile >= 0 && profile < kProfiles ? m_Profiles[profile].setting : StreamSetting{};
}
