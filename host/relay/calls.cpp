// Requests that this host forwards to recording servers.
#include <cstdio>

#include "relay/peer.h"
#include "relay/query_form.h"
#include "relay/sinks.h"
#include "velm/relay.h"
#include "webapi/log_line.h"

namespace {

using oculora::QueryForm;

constexpr char kLogUnit[] = "relay";
constexpr char kDispatcherPath[] = "webapi/entry.cgi";
constexpr int kCommandSeconds = 60;  // an Open answers within 20 s
constexpr int kSliceSeconds = 120;

void TellFailure(const oculora::ServerRecord& server, const std::string& reason) {
  HOST_LOG_ERROR("Recording server %d \"%s\": %s\n", server.id, server.name.c_str(), oculora::ForLog(reason).c_str());
}

// The server and the query for it; empty, and in the log, when there is no such server or the query must not travel.
struct Target {
  oculora::ServerRecord server;
  std::string query;
};

std::optional<Target> FindTarget(int ndId, QueryForm form, const std::string& query) {
  std::optional<oculora::ServerRecord> server = oculora::FindServer(ndId);
  if (!server) {
    HOST_LOG_ERROR("There is no recording server %d.\n", ndId);
    return std::nullopt;
  }
  std::optional<std::string> fit = oculora::FitQuery(form, query);
  if (!fit) {
    HOST_LOG_ERROR("A request that holds \"%s\" is not passed on to recording server %d.\n",
                   oculora::ForLog(query).c_str(), ndId);
    return std::nullopt;
  }
  return Target{std::move(*server), std::move(*fit)};
}

// Passes the answer on as it arrives. 0 once something went out: what is cut short then, the client sees for itself.
int PassOn(int ndId, QueryForm form, const std::string& query) {
  const std::optional<Target> target = FindTarget(ndId, form, query);
  if (!target) return -1;
  oculora::PassingSink sink;
  const std::string error = oculora::CallServer(target->server, target->query, sink);
  if (!error.empty()) TellFailure(target->server, sink.Refusal().empty() ? error : sink.Refusal());
  return sink.HasBegun() ? 0 : -1;
}

// The caller has no answer of its own for this.
void AnswerUnreachable(const oculora::ServerRecord& server, const std::string& reason) {
  printf("Status: 502\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nRecording server \"%s\": %s\n",
         server.name.c_str(), reason.c_str());
  fflush(stdout);
}

}  // namespace

int SendWebAPIToRec(int ndId, const std::string& query) {
  const std::optional<Target> target = FindTarget(ndId, QueryForm::kEncoded, query);
  if (!target) return -1;
  const oculora::PeerAnswer answer = oculora::CallServers({{target->server, target->query}}, kCommandSeconds).front();
  if (answer.success) return 0;
  TellFailure(target->server, answer.reason);
  return -1;
}

int SendWebAPIToRecAndWriteAsHeader(int ndId, const std::string& query, const std::string& header) {
  const std::optional<Target> target = FindTarget(ndId, QueryForm::kEncoded, query);
  if (!target) return -1;
  oculora::PassingSink sink(header);
  const std::string error = oculora::CallServer(target->server, target->query, sink, kSliceSeconds);
  if (error.empty() && sink.IsAsAsked()) return 0;
  const std::string& reason = sink.Refusal().empty() ? error : sink.Refusal();
  if (!sink.HasBegun()) AnswerUnreachable(target->server, reason);
  TellFailure(target->server, reason.empty() ? "it answers with something else" : reason);
  return -1;
}

int RedirectMFStream(int ndId, const std::string& path, const std::string& query) {
  if (path != kDispatcherPath) {
    HOST_LOG_ERROR("Nothing is passed on to \"%s\".\n", oculora::ForLog(path).c_str());
    return -1;
  }
  return PassOn(ndId, QueryForm::kLiveStream, query);
}

int RedirectMFStream(int ndId, const std::string& query) { return PassOn(ndId, QueryForm::kEventPictures, query); }

int RedirectWebAPIEvent(int ndId, const std::string& query) { return PassOn(ndId, QueryForm::kEventFile, query); }
