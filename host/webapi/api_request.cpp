// VELM::APIRequest: questions about one request.
#include <algorithm>

#include "velm/webapi.h"
#include "webapi/request_state.h"
#include "webapi/typed_value.h"

namespace VELM {
namespace {

constexpr char kRedirectParameter[] = "isRedirectCgi";
constexpr char kSessionParameter[] = "_sid";
constexpr char kSessionCookie[] = "oculora_sid";

bool IsSessionId(const std::string& text) {
  return text.size() >= 16 && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
         });
}

// "false" in the type of a default.
Json::Value FalseLike(const Json::Value& defaultValue) {
  switch (defaultValue.type()) {
    case Json::stringValue:
      return "false";
    case Json::intValue:
    case Json::uintValue:
    case Json::realValue:
      return 0;
    default:
      return false;
  }
}

}  // namespace

APIRequest::APIRequest(std::unique_ptr<RequestState> state) : m_State(std::move(state)) {}
APIRequest::~APIRequest() = default;

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& defaultValue) const {
  const std::string* text = m_State->Parameter(name);
  if (text == nullptr) return defaultValue;
  // A request that another host of the system forwards runs with the rights of the system. Only such a host may say
  // that it is one: it proves itself by its pair or by the camera's stream key.
  if (name == kRedirectParameter && !m_State->MayRedirect(*this)) return FalseLike(defaultValue);
  return oculora::TypedValue(*text, defaultValue);
}

std::string APIRequest::GetCookie(const std::string& name, const std::string& defaultValue) const {
  const std::string* value = m_State->Cookie(name);
  return value != nullptr ? *value : defaultValue;
}

std::string APIRequest::GetEnv(const std::string& name, const std::string& defaultValue) const {
  const char* value = m_State->Env(name);
  return value != nullptr ? value : defaultValue;
}

bool APIRequest::IsAuthorized() const { return m_State->Session(GetSessionID()) != nullptr; }

bool APIRequest::IsAdmin() const {
  const oculora::SessionRecord* session = m_State->Session(GetSessionID());
  return session != nullptr && session->user.admin;
}

bool APIRequest::HasAppPriv(const std::string& privilege) const {
  const oculora::SessionRecord* session = m_State->Session(GetSessionID());
  return session != nullptr && session->user.appPrivilege && privilege == oculora::kAppPrivilege;
}

std::string APIRequest::GetLoginUserName() const {
  const oculora::SessionRecord* session = m_State->Session(GetSessionID());
  return session != nullptr ? session->user.name : std::string();
}

unsigned APIRequest::GetLoginUID() const {
  const oculora::SessionRecord* session = m_State->Session(GetSessionID());
  return session != nullptr ? static_cast<unsigned>(session->user.uid) : 0;
}

std::string APIRequest::GetRemoteIP() const { return GetEnv("REMOTE_ADDR", ""); }

std::string APIRequest::GetSessionID() const {
  const std::string given = GetParam(kSessionParameter, "").asString();
  std::string cookie = GetCookie(kSessionCookie, "");
  if (!IsSessionId(cookie)) cookie.clear();
  if (given.empty()) return cookie;
  if (!IsSessionId(given)) return {};
  // A playlist names the session of whoever opened the stream. When that has ended, other viewers still have their own.
  const bool choice = !cookie.empty() && cookie != given;
  if (choice && m_State->Session(given) == nullptr && m_State->Session(cookie) != nullptr) return cookie;
  return given;
}

std::string APIRequest::GetAPIClass() const { return GetParam("api", "").asString(); }
std::string APIRequest::GetAPIMethod() const { return GetParam("method", "").asString(); }
int APIRequest::GetAPIVersion() const { return GetParam("version", 1).asInt(); }

}  // namespace VELM
