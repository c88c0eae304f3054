// Whether the application runs, and what users may do.
#include "records/records.h"
#include "velm/admission.h"
#include "velm/camera.h"
#include "velm/process.h"

bool IsQmRunning() { return ProcAliveByPidFile(oculora::kRecorderPidPath); }

int SDKUser::AppPrivUserHas(const std::string& user, const std::string& privilege, const std::string& /*remoteIp*/) {
  if (privilege != oculora::kAppPrivilege) return 0;
  oculora::Database* database = oculora::RequestDatabase();
  if (database == nullptr) return 0;
  const auto record = database->FindUser(user);
  return record && record->appPrivilege ? 1 : 0;
}

bool PrivProfile::IsOperAllow(PRIV_OPER operation) const {
  return operation >= 0 && operation < 32 && ((m_Operations >> operation) & 1U) != 0;
}

PrivProfile PrivProfileGetByUid(unsigned uid) {
  constexpr std::uint32_t kEverything = 0xffffffff;
  if (uid == kSystemUid) return PrivProfile(kEverything);
  oculora::Database* database = oculora::RequestDatabase();
  if (database == nullptr || uid == 0) return {};
  const auto user = database->FindUserByUid(static_cast<int>(uid));
  if (!user) return {};
  return PrivProfile(user->admin ? kEverything : user->operations);
}
