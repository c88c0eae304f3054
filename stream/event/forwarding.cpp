// Requests for events that another recording server holds: sent there, its answer passed on.
#include "event_unit.h"
#include "streaming.h"
#include "velm/relay.h"

// The receiving server sees an event of a camera of its own.
std::string StreamingHandler::ForwardedQuery(int camIdOnNd) const {
  return GetAPIInfoStr() + "&isRedirectCgi=true" + "&eventId=\"" + std::to_string(camIdOnNd) + ":" +
         std::to_string(m_EventId) + "\"";
}

int StreamingHandler::ForwardFileStream(int eventId, int ndId, int camIdOnNd) {
  const std::string query = ForwardedQuery(camIdOnNd) + "&HTTP_RANGE=" + m_pRequest->GetEnv("HTTP_RANGE", "");
  if (RedirectWebAPIEvent(ndId, query) == 0) return 0;
  SetErrorCode(kErrBadRequest, "", "");
  // The id goes along although the text has no place for it. On purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
  QM_LOG_ALWAYS("WriteFileStream", "Failed to do redirect.\n", eventId);
#pragma GCC diagnostic pop
  return -1;
}

// The play rate stays here on purpose: the other server plays at its defaults.
int StreamingHandler::ForwardMultipartFetch(int ndId, int camIdOnNd) {
  std::string query = ForwardedQuery(camIdOnNd);
  query += "&framestart=" + m_pRequest->GetParam("framestart", "0").asString();
  query += "&framestop=" + m_pRequest->GetParam("framestop", "-1").asString();
  query += "&timestamp=" + m_pRequest->GetParam("timestamp", "0").asString();
  query += "&checkpgid=" + std::to_string(m_pRequest->GetParam("checkpgid", 1).asInt());
  const int result = RedirectMFStream(ndId, query);
  if (result != 0) SetErrorCode(kErrBadRequest, "", "");
  return result;
}
