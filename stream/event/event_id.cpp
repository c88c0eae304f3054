// Ids of events as requests carry them.
#include "event_id.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "event_unit.h"
#include "streaming.h"
#include "velm/camera.h"

std::int32_t ReadInt32(const std::string& text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const long long number = strtoll(text.c_str(), nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long long>(number, Limits::min(), Limits::max()));
}

EventIdParts SplitEventId(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return {false, 0, ReadInt32(text)};
  return {true, ReadInt32(text.substr(0, colon)), ReadInt32(text.substr(colon + 1))};
}

int StreamingHandler::GetRealEventAndNdId(int& ndId, int& camIdOnNd) {
  const EventIdParts parts = SplitEventId(m_pRequest->GetParam("eventId", "0").asString());
  m_EventId = parts.eventId;
  if (!parts.hasCamera) return 0;
  Camera camera;
  if (camera.Load(parts.camId, 0, 0) != 0) {
    SetErrorCode(kErrBadRequest, "", "");
    QM_LOG_ALWAYS(__func__, "Failed to load camera [%d].\n", parts.camId);
    return -1;
  }
  ndId = camera.GetOwnerNdId();
  camIdOnNd = camera.GetIdOnRec();
  return 0;
}
