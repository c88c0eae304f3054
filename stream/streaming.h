// The recorded-event API: one handler serves one request, which for a player lasts as long as it plays.
//
// Where its operations live:
//   event/requests.cpp        HandleEventStream: admission, the event and its camera, choice of the method
//   event/event_id.cpp        GetRealEventAndNdId, SplitEventId
//   event/forwarding.cpp      requests for events that another recording server holds
//   event/file_stream.cpp     WriteFileStream: the whole file, by ranges
//   event/player_request.cpp  MultipartFetch: parameters, signals and the pid file of a session's player
//   event/player.cpp          PlayEvent, CheckPidFileOwner: the paced loop
// and the pure work in event/byte_range.h and event/pacing.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qmwebapihandler.h"

class Event;
struct EventPlayback;
struct PlayRange;

// Names of the analytics detection types, in the order of their numbers. The spelling is the interface's.
extern const std::string kDetectionTypeNames[8];

// State of the event player that this process is; a process plays at most one event.
extern std::string gSessionId;                   // its login session; empty in any other process
extern volatile std::uint8_t gStopPlay;          // set by SIGTERM and when another player took over
extern volatile std::uint8_t gPidFileSignalled;  // set by SIGUSR1: the pid file may name another player now

class StreamingHandler;

using StreamingBase =
    QmWebAPIHandler<StreamingHandler, int (StreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, Json::Value&),
                    int (StreamingHandler::*)(CmsRelayParams&),
                    int (StreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, bool)>;

class StreamingHandler : public StreamingBase {
 public:
  StreamingHandler(VELM::APIRequest* request, VELM::APIResponse* response) : StreamingBase(request, response) {}

  // Serves the whole request and answers it, with media on standard output or an error in the response.
  void HandleEventStream();

  // Decodes the parameter "eventId" into the event's id here and, when it names a camera, the server that owns the
  // camera and the camera's id there; both stay as they are when it does not. 0, or -1 with the error code set when
  // there is no such camera.
  int GetRealEventAndNdId(int& ndId, int& camIdOnNd);

  // Sends the event's file, or the part that `range` (an HTTP "Range" value) asks for; always as 206. 0 when the body
  // was begun or the request forwarded, -1 with the error code set otherwise. Blocks while the client is slow.
  int WriteFileStream(const Event& event, int ndId, int camIdOnNd, const std::string& range);

  // Plays the event as multipart JPEG after ending the session's earlier player. 0 when it was played or could not be
  // after the pid file was written, else not 0.
  int MultipartFetch(const Event& event, int ndId, int camIdOnNd);

  // Plays frames `frameStart` to `frameStop` (the last one when it lies before the first), paced by the file's rate and
  // the play rate. `timestamp` names the progress cell. 0 when it began, whatever ended it; -1 when it could not.
  int PlayEvent(const Event& event, int frameStart, int frameStop, long long timestamp, int rate, bool changeRate);

  // Looks whether the session's pid file still names this process, else stops the player. 0; -1 without a file.
  int CheckPidFileOwner();

 private:
  struct EventRequest {
    bool writeHeader = true;
    bool isRedirectCgi = false;
    int type = 0;  // a REC_EVENT_TYPE
    int mountId = 0;
    int archId = 0;
  };
  EventRequest ReadEventRequest() const;
  bool ServeEvent();
  std::unique_ptr<Event> LoadEvent(const EventRequest& request, int ndId) const;
  bool IsCameraPlayable(int camId, const EventRequest& request);
  std::string RequestedRange(bool isRedirectCgi) const;
  bool SendByMethod(const Event& event, int ndId, int camIdOnNd, const std::string& range);

  std::string ForwardedQuery(int camIdOnNd) const;
  int ForwardFileStream(int eventId, int ndId, int camIdOnNd);
  int ForwardMultipartFetch(int ndId, int camIdOnNd);

  int SetupSignalHandler();
  int PlayRequested(const Event& event);
  int StreamOut(EventPlayback& playback, const PlayRange& range, int rate, bool changeRate);
  void RemovePidFile();
  static std::string GetPidFilePath(const std::string& session);

  std::int32_t m_EventId = 0;
};
