// The rule that says whether a camera may be streamed now.
#include "shm/ring_writer.h"
#include "velm/admission.h"
#include "velm/camera.h"
#include "velm/shmstream.h"

namespace {

bool HasPrivilege(const CamStatusRule& rule) {
  // CAM_PRIVILEGE and PRIV_OPER number the same operations.
  return PrivProfileGetByUid(static_cast<unsigned>(rule.uid)).IsOperAllow(static_cast<PRIV_OPER>(rule.privilege));
}

bool HasRing(const Camera& camera) {
  oculora::RingStatus status;
  for (int profile = 0; profile <= camera.GetMobileProfile(); ++profile) {
    const oculora::RingId ring{camera.GetId(), camera.GetUiStreamNo(profile), oculora::RingKind::kVideo};
    if (oculora::ReadRingStatus(ring, status)) return true;
  }
  return false;
}

}  // namespace

DEV_STATUS GetCamStatusByRule(const Camera& camera, const CamStatusRule& rule) {
  if (rule.checkPrivilege && !HasPrivilege(rule)) return DEV_STATUS_NO_PRIVILEGE;
  if (camera.IsDeleting() && !rule.acceptDeleting) return DEV_STATUS_DELETED;
  if (rule.checkEnabled && !camera.IsEnabled()) return DEV_STATUS_DISABLED;
  if (camera.GetOwnerNdId() != 0) return DEV_STATUS_USABLE;
  // Without a ring nothing can be connected: ask for the deeper reason first.
  if (rule.checkInitialised && !HasRing(camera)) return DEV_STATUS_UNINITIALISED;
  if (rule.checkConnected && GetCamConnStatus(camera.GetId()) != 1) return DEV_STATUS_DISCONNECTED;
  return DEV_STATUS_USABLE;
}

int CamStatusToWebApiErr(DEV_STATUS status) {
  switch (status) {
    case DEV_STATUS_NO_PRIVILEGE:
      return 105;
    case DEV_STATUS_DISABLED:
      return 402;
    case DEV_STATUS_DISCONNECTED:
      return 403;
    case DEV_STATUS_UNINITIALISED:
      return 404;
    case DEV_STATUS_DELETED:
      return 405;
    default:
      return 100;
  }
}
