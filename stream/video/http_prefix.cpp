// The scheme and host name under which the client reached this host.
#include <string_view>

#include "velm/relay.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

// Host names of the deployment's relay services, one for the world and one for the mainland. They end https themselves,
// and the request arrives here without it.
constexpr std::size_t kSuffixLength = 15;
constexpr std::string_view kRelaySuffixes[] = {OCULORA_RELAY_SUFFIX_GLOBAL, OCULORA_RELAY_SUFFIX_MAINLAND};
static_assert(kRelaySuffixes[0].size() == kSuffixLength && kRelaySuffixes[1].size() == kSuffixLength,
              "relay suffixes have 15 characters");

bool IsRelayHost(std::string_view host) {
  if (host.size() <= kSuffixLength) return false;  // the suffix alone is no host of the relay
  return host.ends_with(kRelaySuffixes[0]) || host.ends_with(kRelaySuffixes[1]);
}

}  // namespace

bool VideoStreamingHandler::IsEnvSet(const char* name) const {
  return m_pRequest->GetEnv(name, "0") == m_pRequest->GetEnv(name, "1");
}

int VideoStreamingHandler::GetCorrectHttpPrefix(bool& useHttps, std::string& host) {
  if (IsRedirectCgi()) {
    host = m_pRequest->GetParam("HostIp", "").asString();
    useHttps = m_pRequest->GetParam("useHttps", false).asBool();
    return 0;
  }
  if (!IsEnvSet("HTTP_HOST")) return -1;
  host = m_pRequest->GetEnv("HTTP_HOST", "");
  useHttps = IsRelayHost(host) || IsEnvSet("HTTPS");
  return 0;
}
