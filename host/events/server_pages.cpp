// Asks recording servers for their pages of a list of events.
#include "events/server_pages.h"

#include <string>

#include "events/owner.h"

namespace oculora {
namespace {

constexpr int kPatienceSeconds = 4;
constexpr std::int64_t kUsPerSecond = 1000000;

// The client's question as it is put to one server.
PageQuestion QuestionFor(const AskedServer& asked, const ListQuestion& question) {
  PageQuestion own{asked.server.id, question.limit, question.from * kUsPerSecond, question.to * kUsPerSecond, {}};
  if (question.after) own.after = CursorOn(asked.server.id, *question.after);
  return own;
}

PeerCall CallFor(const AskedServer& asked, const ListQuestion& question, const PageQuestion& own) {
  std::string params = "limit=" + std::to_string(question.limit) + "&from=" + std::to_string(question.from) +
                       "&to=" + std::to_string(question.to);
  if (question.camId != 0) params += "&cameraId=" + std::to_string(asked.cameras.begin()->first);
  if (own.after) params += "&after=" + CursorText({own.after->startUs, 0, own.after->id});  // there they are its own
  return {asked.server, EventCall("List", params)};
}

Json::Value Missing(const ServerRecord& server, const std::string& reason) {
  Json::Value item;
  item["id"] = server.id;
  item["name"] = server.name;
  item["reason"] = reason;
  return item;
}

}  // namespace

std::vector<AskedServer> ServersFor(const ListQuestion& question, Database& records,
                                    const std::vector<CameraRecord>& cameras) {
  std::vector<AskedServer> asked;
  for (ServerRecord& server : records.ListServers()) {
    KnownCameras known;
    for (const CameraRecord& camera : cameras) {
      const bool wanted = question.camId == 0 || question.camId == camera.id;
      if (camera.ownerNdId != server.id || camera.deleting || !wanted) continue;
      known.emplace(camera.idOnRec, KnownCamera{camera.id, camera.name});
    }
    if (!known.empty()) asked.push_back({std::move(server), std::move(known)});
  }
  return asked;
}

Json::Value AddServerPages(const std::vector<AskedServer>& asked, const ListQuestion& question,
                           std::vector<EventPage>& pages) {
  Json::Value missing(Json::arrayValue);
  std::vector<PageQuestion> questions;
  std::vector<PeerCall> calls;
  for (const AskedServer& one : asked) {
    questions.push_back(QuestionFor(one, question));
    calls.push_back(CallFor(one, question, questions.back()));
  }
  const std::vector<PeerAnswer> answers = CallServers(calls, kPatienceSeconds);
  for (std::size_t i = 0; i < asked.size(); ++i) {
    const auto& [server, cameras] = asked[i];
    std::optional<EventPage> page;
    if (answers[i].success) page = ReadServerPage(answers[i].data, questions[i], cameras);
    if (page) {
      pages.push_back(std::move(*page));
    } else {
      missing.append(Missing(server, answers[i].success ? kSenseless : WhyNot(server, answers[i])));
    }
  }
  return missing;
}

}  // namespace oculora
