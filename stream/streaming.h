// The recorded-event API: one handler serves one request.
//
// Where its operations live:
//   event/requests.cpp  HandleEventStream
#pragma once

#include <cstdint>
#include <string>

#include "qmwebapihandler.h"

// Names of the analytics detection types, in the order of their numbers. The spelling is the interface's.
extern const std::string kDetectionTypeNames[8];

// Login session of the event player that this process is; empty in any other process.
extern std::string gSessionId;

class StreamingHandler;

using StreamingBase =
    QmWebAPIHandler<StreamingHandler, int (StreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, Json::Value&),
                    int (StreamingHandler::*)(CmsRelayParams&),
                    int (StreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, bool)>;

class StreamingHandler : public StreamingBase {
 public:
  StreamingHandler(VELM::APIRequest* request, VELM::APIResponse* response) : StreamingBase(request, response) {}

  // Serves the whole request. In this version it admits the caller and answers that playback is not available.
  void HandleEventStream();
};
