// The base of the module's request handlers: admission, user id, error answers.
//
// A handler is built over one request and response, both borrowed, serves them on one thread and is destroyed with the
// request.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>

#include "qmlog.h"
#include "velm/admission.h"
#include "velm/camera.h"
#include "velm/relay.h"
#include "velm/sync.h"
#include "velm/webapi.h"

using QM_WEBAPI_ERR_CODE = std::int32_t;

// What the module itself answers; a camera status adds the host's codes.
enum : QM_WEBAPI_ERR_CODE {
  kErrNone = 0,
  kErrOperationFailed = 100,
  kErrNotAdmitted = 105,
  kErrNoMedia = 400,     // no live ring, or no recorded file
  kErrBadRequest = 401,  // no such camera, or no such method
};

// `Handler` is the deriving class; the other arguments fix the types of its relay call-backs, which the host's relay
// machinery would call and which no operation of this module uses.
template <typename Handler, typename RelayFetch, typename RelaySend, typename RelayApply>
class QmWebAPIHandler {
 public:
  // Reads "relayedCmd", applies the process's CPU affinity and hands the second-factor cookie to the host.
  QmWebAPIHandler(VELM::APIRequest* request, VELM::APIResponse* response);
  virtual ~QmWebAPIHandler();

  // Whether this host may act on a camera alone: non-zero on a central host and for cameras of this host. The name's
  // spelling is part of the interface.
  virtual std::int32_t IsCamAvailiable(std::int32_t camId);
  // Null, whatever the argument.
  virtual Json::Value GetRedirectPrivData(std::int32_t) { return Json::Value(); }

  QmWebAPIHandler(const QmWebAPIHandler&) = delete;
  QmWebAPIHandler& operator=(const QmWebAPIHandler&) = delete;

 protected:
  // Admits a privileged login session, else a paired host. Non-zero: admitted. Reports nothing itself.
  int Authenticate();

  // The user id the request runs under; 1024, the system itself, for a paired host. Asked before Authenticate(), an
  // unprivileged session is authenticated here and the result logged.
  int GetUid();

  // Whether another host of the system forwarded the request here.
  bool IsRedirectCgi() const { return m_pRequest->GetParam("isRedirectCgi", false).asBool(); }

  // The last call wins.
  void SetErrorCode(QM_WEBAPI_ERR_CODE code, std::string param1, std::string param2);

  // Answers the current error code, 0 included, with `data` plus "param1" and "param2".
  void WriteErrorResponse(Json::Value data);

  Json::Value GetAPIInfo() const;     // {"api", "method", "version"}
  std::string GetAPIInfoStr() const;  // "api=...&method=...&version=...", nothing escaped

  VELM::APIRequest* m_pRequest;
  VELM::APIResponse* m_pResponse;
  bool m_IsRelayedCmd = false;
  bool m_IsPairAuth = false;
  bool m_AuthChecked = false;
  QM_WEBAPI_ERR_CODE m_ErrCode = kErrNone;
  PrivProfile* m_pPrivProfile = nullptr;  // owned
  std::map<std::int32_t, std::string> m_ErrParams;
  QmMutex m_PrivMutex;  // only built and destroyed: the host's own handlers lock it
  QmMutex m_UidMutex;   // held while the request is asked for the login user id

 private:
  static constexpr char kUnit[] = "webapi/include/qmwebapihandler";
  static constexpr char kPrivilege[] = "VELM.QRT.Oculora";
  static constexpr char kServiceAccount[] = "Oculora";

  int AdmitSession() const;
  int AdmitPair();
};

template <typename H, typename F, typename S, typename A>
QmWebAPIHandler<H, F, S, A>::QmWebAPIHandler(VELM::APIRequest* request, VELM::APIResponse* response)
    : m_pRequest(request), m_pResponse(response) {
  const bool relayed = m_pRequest->GetParam("relayedCmd", false).asBool();
  m_IsRelayedCmd = IsCmsHost() && relayed;
  QmTaskSet::SetAffinity("");
  const std::string dual = m_pRequest->GetCookie("ocu_dual_auth", "");
  DualAuth::CheckToSetEnv(dual, m_pRequest->GetSessionID());
}

template <typename H, typename F, typename S, typename A>
QmWebAPIHandler<H, F, S, A>::~QmWebAPIHandler() {
  delete m_pPrivProfile;
  m_pPrivProfile = nullptr;
}

// A logged-in user passes by privilege, as administrator, as the application's own account, or by what the account
// system says about the user and the address.
template <typename H, typename F, typename S, typename A>
int QmWebAPIHandler<H, F, S, A>::AdmitSession() const {
  if (!m_pRequest->IsAuthorized()) return 0;
  if (m_pRequest->HasAppPriv(kPrivilege) || m_pRequest->IsAdmin()) return 1;
  const std::string user = m_pRequest->GetLoginUserName();
  if (user == kServiceAccount) return 1;
  return SDKUser::AppPrivUserHas(user, kPrivilege, m_pRequest->GetRemoteIP());
}

// A recording server proves itself with a key in the parameter "cookie" over the time in the cookie "timestamp". The
// defaults, one of them misspelled, reach the match on purpose: only an empty value is refused before it.
template <typename H, typename F, typename S, typename A>
int QmWebAPIHandler<H, F, S, A>::AdmitPair() {
  const bool running = IsQmRunning();
  const int isCrossSite = m_pRequest->GetParam("isCrossSite", 0).asInt();
  const std::string client = m_pRequest->GetParam("client", "").asString();
  if (client != "NVR" && client != "REC_SERVER") return 0;
  if (!running) return 0;
  std::string cookie = m_pRequest->GetParam("cookie", "FailedCookie").asString();
  std::string timestamp = m_pRequest->GetCookie("timestamp", "FailedTiemstamp");
  if (cookie.empty() || timestamp.empty()) return 0;
  const int result = isCrossSite == 1 ? SlaveNdAuthentication().IsAuthByPairMatch(cookie, timestamp)
                                      : IsAuthPairMatch(cookie, timestamp);
  if (result != 0) m_IsPairAuth = true;
  return result;
}

template <typename H, typename F, typename S, typename A>
int QmWebAPIHandler<H, F, S, A>::Authenticate() {
  m_AuthChecked = true;
  const int admitted = AdmitSession();
  return admitted != 0 ? admitted : AdmitPair();
}

template <typename H, typename F, typename S, typename A>
int QmWebAPIHandler<H, F, S, A>::GetUid() {
  if (!m_AuthChecked && AdmitSession() == 0) {
    const int result = Authenticate();
    QmPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, kUnit, __LINE__, "GetUid",
             "api: %s, method: %s, version: %d, not authenticated, Result: [%d]\n", m_pRequest->GetAPIClass().c_str(),
             m_pRequest->GetAPIMethod().c_str(), m_pRequest->GetAPIVersion(), result);
  }
  if (m_IsPairAuth) return kSystemUid;
  m_UidMutex.Lock();
  const auto uid = static_cast<int>(m_pRequest->GetLoginUID());
  m_UidMutex.Unlock();
  return uid;
}

template <typename H, typename F, typename S, typename A>
void QmWebAPIHandler<H, F, S, A>::SetErrorCode(QM_WEBAPI_ERR_CODE code, std::string param1, std::string param2) {
  m_ErrCode = code;
  m_ErrParams[1] = std::move(param1);
  m_ErrParams[2] = std::move(param2);
}

template <typename H, typename F, typename S, typename A>
void QmWebAPIHandler<H, F, S, A>::WriteErrorResponse(Json::Value data) {
  data["param1"] = m_ErrParams[1];
  data["param2"] = m_ErrParams[2];
  m_pResponse->SetError(m_ErrCode, data);
}

template <typename H, typename F, typename S, typename A>
Json::Value QmWebAPIHandler<H, F, S, A>::GetAPIInfo() const {
  Json::Value info(Json::objectValue);
  info["api"] = m_pRequest->GetAPIClass();
  info["method"] = m_pRequest->GetAPIMethod();
  info["version"] = m_pRequest->GetAPIVersion();
  return info;
}

template <typename H, typename F, typename S, typename A>
std::string QmWebAPIHandler<H, F, S, A>::GetAPIInfoStr() const {
  return "api=" + m_pRequest->GetAPIClass() + "&method=" + m_pRequest->GetAPIMethod() +
         "&version=" + std::to_string(m_pRequest->GetAPIVersion());
}

template <typename H, typename F, typename S, typename A>
std::int32_t QmWebAPIHandler<H, F, S, A>::IsCamAvailiable(std::int32_t camId) {
  if (IsCmsHost() || GetCamOwnerNdId(camId) == 0) return 1;
  QmPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, kUnit, __LINE__, "IsCamAvailiable",
           "Camera[%d]: Modify detection param while CMS closed.\n", camId);
  return 0;
}
