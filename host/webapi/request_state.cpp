// The client's fields, its session, and whether it may forward requests.
#include "webapi/request_state.h"

#include <cstdlib>
#include <ctime>

#include "admission/pair_match.h"
#include "relay/stream_key.h"

namespace VELM {

RequestState::RequestState(oculora::RawRequest raw)
    : m_Env(std::move(raw.env)), m_Cookies(oculora::ParseCookies(raw.cookies)) {
  if (!oculora::ParseParameters(raw.query, raw.body, m_Parameters)) {
    m_InputError = "more than " + std::to_string(oculora::kMaxParameters) + " parameters";
  }
}

const char* RequestState::Env(const std::string& name) const {
  if (!m_Env) return std::getenv(name.c_str());
  const auto found = m_Env->find(name);
  return found == m_Env->end() ? nullptr : found->second.c_str();
}

const oculora::SessionRecord* RequestState::Session(const std::string& id) {
  if (id.empty()) return nullptr;
  const auto [entry, news] = m_Sessions.try_emplace(id);
  if (news) {
    oculora::Database* database = oculora::RequestDatabase();
    // Records that could not be read once are not waited for again.
    if (database != nullptr && !database->IsUnreadable()) entry->second = database->FindSession(id, std::time(nullptr));
  }
  return entry->second ? &*entry->second : nullptr;
}

namespace {

// The key itself is looked at, not just its presence: otherwise anyone who is logged in could add any key, and have
// the rights of the system. A host that forwards addresses a camera of ours by our own id.
bool HoldsStreamKey(const APIRequest& request) {
  const std::string key = request.GetParam("StmKey", "").asString();
  return !key.empty() && oculora::IsStreamKeyOf(0, request.GetParam("cameraId", 0).asInt(), key);
}

}  // namespace

bool RequestState::MayRedirect(const APIRequest& request) {
  if (!m_MayRedirect) m_MayRedirect = HoldsStreamKey(request) || oculora::IsPairedPeer(request);
  return *m_MayRedirect;
}

}  // namespace VELM

namespace oculora {

std::unique_ptr<VELM::APIRequest> MakeRequest(RawRequest raw) {
  return std::make_unique<VELM::APIRequest>(std::make_unique<VELM::RequestState>(std::move(raw)));
}

}  // namespace oculora
