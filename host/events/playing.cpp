// The progress cell of a running playback: its rate, and how far it is.
#include "events/admitting.h"
#include "events/events.h"
#include "velm/media.h"
#include "webapi/cgi_input.h"

namespace oculora {
namespace {

constexpr std::int64_t kLatestKey = std::int64_t{1} << 53;  // beyond it browsers' numbers have gaps
constexpr int kFastest = 64;
constexpr int kNotSet = -1;

std::optional<std::int64_t> KeyOf(const VELM::APIRequest& request, VELM::APIResponse& response) {
  const std::int64_t key = LongParam(request, "timestamp");
  if (key >= 1 && key <= kLatestKey) return key;
  response.SetError(kErrBadParameter, "\"timestamp\" is required: the number that the playback was started with");
  return std::nullopt;
}

void RefuseUnknownKey(VELM::APIResponse& response) {
  response.SetError(kErrUnknownEvent, "nothing is played under this \"timestamp\"");
}

}  // namespace

void SetPlayRate(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback | kNeedPost)) return;
  const std::optional<std::int64_t> key = KeyOf(*request, *response);
  if (!key) return;
  int rate = request->GetParam("rate", 0).asInt();
  if (rate == 0 || rate < -kFastest || rate > kFastest) {
    response->SetError(kErrBadParameter, "\"rate\" is 1 to 64 (faster) or -1 to -64 (slower)");
    return;
  }
  if (rate == kNotSet) rate = 1;  // the same speed, and not the mark of an empty cell
  ProgressIndicator cell(*key, false, true);
  if (cell.Get() == kNotSet || cell.Set(rate) != 0) {
    RefuseUnknownKey(*response);
    return;
  }
  response->SetSuccess(Json::Value());
}

void TellProgress(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  const std::optional<std::int64_t> key = KeyOf(*request, *response);
  if (!key) return;
  const int value = ProgressIndicator(*key, false, true).Get();
  if (value == kNotSet) {
    RefuseUnknownKey(*response);
    return;
  }
  Json::Value data;
  data["value"] = value;
  response->SetSuccess(data);
}

}  // namespace oculora
