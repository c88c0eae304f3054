// The module's API table and entry functions.
#include "streaming.h"
#include "velm/apitable.h"
#include "videoStreaming.h"

#define OCULORA_EXPORT extern "C" __attribute__((visibility("default")))

// The handlers are locals: an exception destroys them and goes on to the host unchanged.
OCULORA_EXPORT void VideoStream(VELM::APIRequest* request, VELM::APIResponse* response) {
  VideoStreamingHandler handler(request, response);
  handler.HandleProcess();
}

OCULORA_EXPORT void EventStream(VELM::APIRequest* request, VELM::APIResponse* response) {
  StreamingHandler handler(request, response);
  handler.HandleEventStream();
}

namespace {

constexpr char kEventApi[] = "VELM.Oculora.Stream";
constexpr char kVideoApi[] = "VELM.Oculora.Stream.VideoStreaming";

}  // namespace

OCULORA_EXPORT const VELM::APITableRow gTable[];
const VELM::APITableRow gTable[] = {
    {kEventApi, 1, "EventStream", EventStream},
    {kEventApi, 1, "EventMultipartFetch", EventStream},
    {kVideoApi, 1, "Stream", VideoStream},
    {kVideoApi, 1, "Open", VideoStream},
    {kVideoApi, 1, "Close", VideoStream},
    {kVideoApi, 1, "Query", VideoStream},
    {nullptr, 0, nullptr, nullptr},
};

OCULORA_EXPORT const VELM::APITableRow* GetAPITable() { return gTable; }
