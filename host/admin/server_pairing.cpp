// Pairing with a recording server over its web API.
#include "admin/server_pairing.h"

#include "admin/camera_source.h"
#include "relay/peer.h"
#include "relay/query_form.h"
#include "servers/clean_text.h"
#include "servers/host_name.h"

namespace oculora {
namespace {

constexpr int kStepSeconds = 20;
constexpr std::size_t kMaxReason = 300;
constexpr std::size_t kMaxSessionId = 64;
constexpr int kErrFailed = 100;
constexpr int kErrUnknownApi = 102;
constexpr int kErrUnknownVersion = 104;
constexpr int kErrWrongPassword = 410;

std::string At(const PairingRequest& request) { return "the server at " + request.url; }

std::string Field(const char* name, const std::string& value) {
  return std::string("&") + name + "=" + PercentEncode(value);
}

// Why a step failed, as a sentence.
std::string Explain(const PairingRequest& request, const PeerAnswer& answer) {
  if (answer.code == kErrWrongPassword)
    return At(request) + " refuses \"" + request.user + "\": wrong name or password";
  if (answer.code >= kErrUnknownApi && answer.code <= kErrUnknownVersion) {
    return At(request) + " knows nothing of pairs; bring both hosts to the same version";
  }
  return At(request) + ": " + CleanText(answer.reason, kMaxReason);
}

// The session; empty, with a sentence, when there is none.
std::string LogIn(const PairingRequest& request, bool& admin, std::string& sentence) {
  const PeerAnswer answer = PostForm(request.url,
                                     "api=VELM.Oculora.Account&version=1&method=Login" +
                                         Field("account", request.user) + Field("passwd", request.password),
                                     kStepSeconds);
  if (!answer.success) {
    sentence = Explain(request, answer);
    return {};
  }
  const Json::Value session = answer.data.isObject() ? answer.data["sid"] : Json::Value();
  if (!session.isString() || session.asString().empty() || session.asString().size() > kMaxSessionId) {
    sentence = At(request) + " answers a log-in with something else";
    return {};
  }
  admin = answer.data["admin"].isBool() && answer.data["admin"].asBool();
  return session.asString();
}

void LogOut(const PairingRequest& request, const std::string& session) {
  PostForm(request.url, "api=VELM.Oculora.Account&version=1&method=Logout" + Field("_sid", session), kStepSeconds);
}

std::string GiveSecret(const PairingRequest& request, const std::string& session) {
  const PeerAnswer answer = PostForm(request.url,
                                     "api=VELM.Oculora.Server&version=1&method=Pair" + Field("_sid", session) +
                                         Field("secret", request.secret) + Field("name", HostName()) +
                                         (request.replace ? "&replace=true" : ""),
                                     kStepSeconds);
  if (answer.success) return {};
  const std::string reason = Explain(request, answer);
  if (answer.code == kErrFailed) return reason + "; --replace pairs it with this host all the same";
  // It may have been the answer that was lost.
  return answer.code == 0 ? reason + "; should it have been paired all the same, try again with --replace" : reason;
}

}  // namespace

std::optional<std::string> NormaliseServerUrl(const std::string& url) {
  std::string error;
  const bool http = url.starts_with("http://") || url.starts_with("https://");
  if (!http || !NormaliseSource(url, &error) || url.find_first_of("@?#\"\\") != std::string::npos) return std::nullopt;
  return url.substr(0, url.find_last_not_of('/') + 1);
}

std::string PairWithServer(const PairingRequest& request) {
  std::string sentence;
  bool admin = false;
  const std::string session = LogIn(request, admin, sentence);
  if (session.empty()) return sentence;
  sentence = admin ? GiveSecret(request, session)
                   : "\"" + request.user + "\" is no administrator of " + At(request) + "; log in as one";
  LogOut(request, session);
  return sentence;
}

}  // namespace oculora
