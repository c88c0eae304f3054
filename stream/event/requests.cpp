// Requests for recorded events.
#include "streaming.h"

const std::string kDetectionTypeNames[8] = {
    "object_tracking",
    "motion_detection",
    "non_idle_zone",
    "people_counting_wall_mount",
    "foreign_object",
    "missing_object",
    "people_counting_ceilling_mount",
    "object_detection",
};

std::string gSessionId;

void StreamingHandler::HandleEventStream() {
  if (Authenticate() == 0) {
    m_pResponse->SetError(kErrNotAdmitted, Json::Value());
    return;
  }
  SetErrorCode(kErrNotAvailable, m_pRequest->GetAPIMethod(), "Recorded events are not available in this version.");
  WriteErrorResponse(Json::Value());
}
