// Requests passed on to the recording server that has the event.
#include "events/owner.h"

#include <algorithm>

#include "events/admitting.h"
#include "events/picture_answer.h"
#include "relay/sinks.h"
#include "servers/asking.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr int kPatienceSeconds = 8;  // the page waits for ten
constexpr std::size_t kMostCaching = 100;

// Whether the server understood and believed this host, and refused all the same: then it says why in its own words.
bool IsItsVerdict(int code) { return code == kErrFailed || code == kErrBadParameter || code > kErrNotAllowed; }

// Answers for a server that did not do what it was asked for.
void RefuseFor(const ServerRecord& server, const PeerAnswer& answer, VELM::APIResponse& response) {
  const std::string reason = WhyNot(server, answer);
  if (IsItsVerdict(answer.code)) {
    response.SetError(answer.code, reason);
    return;
  }
  const char* const link = reason.starts_with("it") ? ": " : " ";  // "its answer ...", "cannot be reached ..."
  response.SetError(kErrFailed, "recording server \"" + server.name + "\"" + link + reason);
}

// What a server answered in place of a picture.
PeerAnswer ReadRefusal(const CollectingSink& sink) {
  PeerAnswer answer = ReadAnswer(sink.Head(), sink.Body());
  if (answer.success) answer.reason = kSenseless;
  return answer;
}

// The caching that the server wants, when it is one line of ordinary characters.
std::string CachingOf(const HttpHead& head) {
  const std::string* const value = head.Find("Cache-Control");
  const bool fits = value != nullptr && value->size() <= kMostCaching &&
                    std::all_of(value->begin(), value->end(), [](char c) { return c >= 0x20 && c < 0x7f; });
  return fits ? *value : "no-store";
}

bool IsPicture(const HttpHead& head) {
  const std::string* const type = head.Find("Content-Type");
  return head.status == 200 && type != nullptr && *type == "image/jpeg";
}

}  // namespace

std::optional<RemoteCamera> OwnerOf(CameraRecord camera, VELM::APIResponse& response) {
  if (std::optional<ServerRecord> server = FindServer(camera.ownerNdId)) {
    return RemoteCamera{std::move(*server), std::move(camera)};
  }
  response.SetError(kErrFailed, "camera " + std::to_string(camera.id) + " belongs to recording server " +
                                    std::to_string(camera.ownerNdId) + ", which is not known here");
  return std::nullopt;
}

std::string EventCall(const std::string& method, const std::string& params) {
  return "api=VELM.Oculora.Event&version=1&method=" + method + "&" + params;
}

std::optional<Json::Value> AskOwner(const RemoteCamera& owner, const std::string& method, const std::string& params,
                                    VELM::APIResponse& response) {
  PeerAnswer answer = CallServers({{owner.server, EventCall(method, params)}}, kPatienceSeconds).front();
  if (answer.success) return std::move(answer.data);
  RefuseFor(owner.server, answer, response);
  return std::nullopt;
}

void PassThumbnail(const RemoteCamera& owner, int eventId, VELM::APIResponse& response) {
  CollectingSink sink(kMostPictureBytes);
  const std::string query = EventCall("Thumbnail", "eventId=" + std::to_string(eventId));
  PeerAnswer answer;
  answer.reason = CallServer(owner.server, query, sink, kPatienceSeconds);
  if (answer.reason.empty() && IsPicture(sink.Head())) {
    AnswerWithPicture(sink.Body(), CachingOf(sink.Head()), response);
    return;
  }
  if (answer.reason.empty()) answer = ReadRefusal(sink);
  RefuseFor(owner.server, answer, response);
}

std::string WhyNot(const ServerRecord& server, const PeerAnswer& answer) { return JudgeAnswer(server, answer).reason; }

}  // namespace oculora
