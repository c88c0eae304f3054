// What stands behind an APIRequest: the client's fields, and the session, looked up when somebody asks.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "records/records.h"
#include "velm/webapi.h"
#include "webapi/form.h"

namespace oculora {

// A request as it came. The dispatcher fills it from the process, tests by hand.
struct RawRequest {
  std::string query;                                      // QUERY_STRING
  std::string body;                                       // of a form, application/x-www-form-urlencoded
  std::string cookies;                                    // HTTP_COOKIE
  std::optional<std::map<std::string, std::string>> env;  // in place of the process's environment
};

}  // namespace oculora

namespace VELM {

struct RequestState {
  explicit RequestState(oculora::RawRequest raw);

  // Why the request cannot be served at all; empty when it can.
  const std::string& InputError() const { return m_InputError; }

  const std::string* Parameter(const std::string& name) const { return oculora::FindField(m_Parameters, name); }
  const std::string* Cookie(const std::string& name) const { return oculora::FindField(m_Cookies, name); }
  const char* Env(const std::string& name) const;  // null when not set

  // The live session of `id`; null when there is none. The records are asked once for each id.
  const oculora::SessionRecord* Session(const std::string& id);

  // Whether the sender may say that it forwards a request; see APIRequest::GetParam.
  bool MayRedirect(const APIRequest& request);

 private:
  std::optional<std::map<std::string, std::string>> m_Env;
  oculora::Fields m_Parameters;
  oculora::Fields m_Cookies;
  std::string m_InputError;
  std::map<std::string, std::optional<oculora::SessionRecord>> m_Sessions;  // the one or two ids of the request
  std::optional<bool> m_MayRedirect;
};

}  // namespace VELM

namespace oculora {

// An APIRequest over `raw`, for the dispatcher and for tests.
std::unique_ptr<VELM::APIRequest> MakeRequest(RawRequest raw);

}  // namespace oculora
