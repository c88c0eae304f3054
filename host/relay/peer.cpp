// Calls to paired hosts.
#include "relay/peer.h"

#include <json/reader.h>
#include <unistd.h>

#include <ctime>
#include <memory>

#include "admission/crypto.h"
#include "admission/pair_match.h"
#include "process/object_table.h"
#include "relay/query_form.h"
#include "relay/sinks.h"
#include "webapi/current_request.h"

namespace oculora {
namespace {

constexpr char kDispatcherPath[] = "/webapi/entry.cgi";
constexpr char kRelayedField[] = "X-Oculora-Relayed";
constexpr char kRelayedEnv[] = "HTTP_X_OCULORA_RELAYED";
constexpr std::size_t kMostAnswerBytes = 4 << 20;
constexpr char kOneHop[] = "is not called: the request came from another host already";
constexpr char kUnloadable[] = "cannot be called: the library for calls cannot be loaded";

const HttpTable* Http() {
  static const auto* const table = static_cast<const HttpTable*>(
      LoadObjectTable({"relay", "relay", "oculora-relay.so", "OculoraHttpTable", kHttpTableVersion}));
  return table;
}

// Whether another host of the system sent the request that this process serves.
bool IsRelayedHere() {
  const VELM::APIRequest* request = CurrentRequest();
  return request != nullptr && !request->GetEnv(kRelayedEnv, "").empty();
}

// A name for the client's session that is the same in all calls, and opens nothing here.
std::string SessionFor(const ServerRecord& server) {
  const VELM::APIRequest* request = CurrentRequest();
  const std::string own = request != nullptr ? request->GetSessionID() : std::string();
  return own.empty() ? std::string() : KeyedHash(server.secret, "oculora-session:" + own);
}

std::string DispatcherUrl(std::string url) {
  while (url.ends_with('/')) url.pop_back();
  return url + kDispatcherPath;
}

std::string TrustedFile(const std::string& url) {
  return url.starts_with("https") && access(kTrustedPath, R_OK) == 0 ? kTrustedPath : "";
}

HttpCall MakeCall(const ServerRecord& server, const std::string& query, int totalSeconds) {
  const std::string now = std::to_string(std::time(nullptr));
  const std::string session = SessionFor(server);
  HttpCall call;
  call.url = DispatcherUrl(server.url) + "?" + query;
  call.form = "client=NVR&cookie=" + PairCookie(server.secret, now);
  call.fields = {"Content-Type: application/x-www-form-urlencoded", std::string(kRelayedField) + ": 1",
                 "Cookie: timestamp=" + now + (session.empty() ? "" : "; oculora_sid=" + session)};
  call.trusted = TrustedFile(server.url);
  call.totalSeconds = totalSeconds;
  return call;
}

std::optional<std::int64_t> ClockAhead(const HttpHead& head) {
  const std::string* date = head.Find("Date");
  tm utc{};
  if (date == nullptr || strptime(date->c_str(), "%a, %d %b %Y %H:%M:%S GMT", &utc) == nullptr) return std::nullopt;
  return std::int64_t{timegm(&utc)} - std::time(nullptr);
}

bool ParseObject(const std::string& text, Json::Value& value) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), &value, nullptr) && value.isObject();
  } catch (const Json::Exception&) {  // nested too deep
    return false;
  }
}

PeerAnswer Refused(std::string reason) {
  PeerAnswer answer;
  answer.reason = std::move(reason);
  return answer;
}

std::string Unreached(const std::string& error) { return "cannot be reached: " + error; }

// `failure`: why not the whole answer came; empty when it did.
PeerAnswer ReadCollected(const CollectingSink& sink, const std::string& failure) {
  if (sink.IsTooLarge()) return Refused("its answer is larger than 4 MiB");
  return failure.empty() ? ReadAnswer(sink.Head(), sink.Body()) : Refused(Unreached(failure));
}

std::vector<PeerAnswer> SendAll(const std::vector<HttpCall>& calls) {
  const HttpTable* http = calls.empty() ? nullptr : Http();
  if (http == nullptr) return std::vector<PeerAnswer>(calls.size(), Refused(kUnloadable));
  std::vector<CollectingSink> sinks(calls.size(), CollectingSink(kMostAnswerBytes));
  std::vector<HttpSink*> pointers;
  pointers.reserve(calls.size());
  for (CollectingSink& sink : sinks) pointers.push_back(&sink);
  std::vector<std::string> errors(calls.size());
  http->send(calls.data(), pointers.data(), errors.data(), calls.size());
  std::vector<PeerAnswer> answers;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    answers.push_back(ReadCollected(sinks[i], errors[i]));
  }
  return answers;
}

}  // namespace

std::optional<ServerRecord> FindServer(int ndId) {
  Database* records = RequestDatabase();
  if (records == nullptr || ndId < 1) return std::nullopt;
  for (ServerRecord& server : records->ListServers()) {
    if (server.id == ndId) return std::move(server);
  }
  return std::nullopt;
}

PeerAnswer ReadAnswer(const HttpHead& head, const std::string& body) {
  PeerAnswer answer;
  answer.clockAheadSeconds = ClockAhead(head);
  Json::Value envelope;
  if (!ParseObject(body, envelope) || !envelope["success"].isBool()) {
    answer.reason = "its answer makes no sense (HTTP status " + std::to_string(head.status) + ")";
    return answer;
  }
  answer.success = envelope["success"].asBool();
  if (answer.success) {
    answer.data = envelope["data"];
    return answer;
  }
  const Json::Value& error = envelope["error"];
  if (error.isObject() && error["code"].isInt()) answer.code = error["code"].asInt();
  const Json::Value text = error.isObject() ? error["data"] : Json::Value();
  answer.reason = text.isString() ? text.asString() : "it answers error " + std::to_string(answer.code);
  return answer;
}

std::string CallServer(const ServerRecord& server, const std::string& query, HttpSink& sink, int totalSeconds) {
  if (IsRelayedHere()) return kOneHop;
  const HttpTable* http = Http();
  if (http == nullptr) return kUnloadable;
  const HttpCall call = MakeCall(server, query, totalSeconds);
  HttpSink* const sinks[] = {&sink};
  std::string error;
  http->send(&call, sinks, &error, 1);
  return error.empty() ? error : Unreached(error);
}

std::vector<PeerAnswer> CallServers(const std::vector<PeerCall>& calls, int totalSeconds) {
  if (IsRelayedHere()) return std::vector<PeerAnswer>(calls.size(), Refused(kOneHop));
  std::vector<HttpCall> made;
  made.reserve(calls.size());
  for (const PeerCall& call : calls) made.push_back(MakeCall(call.server, call.query, totalSeconds));
  return SendAll(made);
}

PeerAnswer PostForm(const std::string& serverUrl, const std::string& form, int totalSeconds) {
  HttpCall call;
  call.url = DispatcherUrl(serverUrl);
  call.form = form;
  call.fields = {"Content-Type: application/x-www-form-urlencoded"};
  call.trusted = TrustedFile(serverUrl);
  call.totalSeconds = totalSeconds;
  return SendAll({call}).front();
}

}  // namespace oculora
