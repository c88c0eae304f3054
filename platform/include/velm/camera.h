// Camera records and the rule that says whether a camera may be streamed.
#pragma once

#include <cstdint>
#include <string>

// Codec numbers of camera records and rings. 7 is a second H.264 variant that is closed like 3.
enum CAM_VIDEO_TYPE : std::int32_t {
  VIDEO_TYPE_MJPEG = 1,
  VIDEO_TYPE_MPEG4 = 2,
  VIDEO_TYPE_H264 = 3,
  VIDEO_TYPE_MXPEG = 5,
  VIDEO_TYPE_H264_PLUS = 7,
};

// The verdict on a camera. 1 is usable, every other value is a reason not to stream.
enum DEV_STATUS : std::int32_t {
  DEV_STATUS_USABLE = 1,
  DEV_STATUS_DELETED = 2,        // marked for deletion
  DEV_STATUS_DISABLED = 3,       // switched off by an administrator
  DEV_STATUS_DISCONNECTED = 4,   // no frame for 30 s although someone watches
  DEV_STATUS_UNINITIALISED = 5,  // its recorder has not made its ring yet
  DEV_STATUS_NO_PRIVILEGE = 6,   // the user may not see it
};

struct StreamSetting {
  std::int32_t fps = 0;     // frames a second the camera is asked for; 0 when unknown
  std::int32_t width = 0;   // pixels; 0 when unknown
  std::int32_t height = 0;  // pixels; 0 when unknown
};

class Camera {
 public:
  // Loads the record of camera `id`. `mountId` names the storage the record lies on (0: this host), `flags` is
  // reserved and 0. Returns 0, or -1 (no such camera, records unreadable) and leaves the object as it was.
  // Blocks on the records at most for their busy time-out. Several Loads on one object are allowed.
  int Load(int id, int mountId, int flags);

  int GetId() const { return m_Id; }
  const std::string& GetName() const { return m_Name; }
  int GetOwnerNdId() const { return m_OwnerNdId; }  // the owning recording server; 0 is this host
  int GetIdOnRec() const { return m_IdOnRec; }      // the camera's id there
  int GetVideoType() const { return m_VideoType; }  // a CAM_VIDEO_TYPE
  bool IsEnabled() const { return m_Enabled; }
  bool IsDeleting() const { return m_Deleting; }
  int GetMobileProfile() const { return m_MobileProfile; }
  int GetUiStreamNo(int profile) const;               // stream number of a profile; 0 for an unknown profile
  StreamSetting GetStreamSetting(int profile) const;  // settings of a profile; zeroes for an unknown profile

 private:
  static constexpr int kProfiles = 3;  // high, balanced, mobile
  struct Profile {
    std::int32_t streamNo = 0;
    StreamSetting setting;
  };

  std::int32_t m_Id = 0;
  std::string m_Name;
  std::int32_t m_OwnerNdId = 0;
  std::int32_t m_IdOnRec = 0;
  std::int32_t m_VideoType = 0;
  std::int32_t m_MobileProfile = 0;
  bool m_Enabled = false;
  bool m_Deleting = false;
  Profile m_Profiles[kProfiles];
};

enum CAM_PRIVILEGE : std::int32_t { CAM_PRIV_LIVE = 1, CAM_PRIV_PLAYBACK = 2 };

// The user id of the system itself: it holds every privilege.
constexpr int kSystemUid = 1024;

// What to check, in this order; a flag that is false skips its check.
struct CamStatusRule {
  bool checkPrivilege;
  bool checkEnabled;
  bool checkConnected;
  bool checkInitialised;
  bool acceptDeleting;     // a camera being deleted still passes
  std::int32_t privilege;  // a CAM_PRIVILEGE
  std::int32_t uid;        // whose privilege
};

// DEV_STATUS_USABLE, or the first reason against it. A camera of another recording server is judged there: here only
// privilege, deletion and the enabled flag count. Never blocks longer than one read of the records.
DEV_STATUS GetCamStatusByRule(const Camera& camera, const CamStatusRule& rule);

// The web-API error code of a status that is not usable: 105 no privilege, 402 disabled, 403 disconnected,
// 404 not initialised, 405 being deleted, 100 for any other value.
int CamStatusToWebApiErr(DEV_STATUS status);
