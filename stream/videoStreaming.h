// The live-video API: one handler serves one request, which for "Stream" may last for hours.
//
// Where its operations live:
//   video/dispatch.cpp         construction, loading the camera, admission, method and format dispatch
//   video/stream_key.cpp       AuthByStmKey
//   video/live_view.cpp        OutputMjpegStream, OutputMxpegStream: what both do before a picture is sent
//   video/view_file.cpp        CheckTimeStamp: the hand-over between views of one session
//   video/live_mjpeg.cpp       LiveviewMjpgCam
//   video/query.cpp            HandleQuery
//   video/process_control.cpp  SetupSignalHandler, FFmpegThreadStop
//   video/later.cpp            operations that answer "not available in this version"
#pragma once

#include <pthread.h>

#include <climits>
#include <cstdint>
#include <string>

#include "ffmpegWrap.h"
#include "qmwebapihandler.h"
#include "velm/camera.h"
#include "velm/shmstream.h"

// Set by SIGTERM and SIGINT; every streaming loop ends when it is.
extern volatile int g_StopFlag;

class VideoStreamingHandler;

using VideoStreamingBase =
    QmWebAPIHandler<VideoStreamingHandler,
                    int (VideoStreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, Json::Value&),
                    int (VideoStreamingHandler::*)(CmsRelayParams&),
                    int (VideoStreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, bool)>;

class VideoStreamingHandler : public VideoStreamingBase {
 public:
  VideoStreamingHandler(VELM::APIRequest* request, VELM::APIResponse* response);
  ~VideoStreamingHandler() override;

  // Serves the whole request. The camera is loaded before the caller is admitted, so an unknown camera answers 401 to
  // anyone.
  void HandleProcess();

  // Installs the handler of SIGTERM and SIGINT that sets g_StopFlag. 0 or -1.
  int SetupSignalHandler();

  // Admits this process to the views of session `sid`: views with the same time stamp run together, a new time stamp
  // kills the older ones. 0 when this process may stream, -1 otherwise. May wait for the lock of a neighbour.
  int CheckTimeStamp(const char* sid, long timestamp);

 private:
  int LoadBasicDataMember(Camera& camera);  // 0 or -1
  bool AuthByStmKey();

  void HandleStream(Camera& camera, bool byStmKey);
  void HandleOpen(Camera& camera);
  void HandleClose(Camera& camera);
  void HandleQuery(Camera& camera);

  // The rule every method judges the camera by, for the user of this request.
  CamStatusRule MakeStatusRule(bool checkPrivilege);

  void OutputMjpegStream();
  void OutputMxpegStream();
  void OutputM3u8();
  void OutputHls(const std::string& sliceId);

  bool BeginLocalView();  // signal handler and time stamp; false when this process must not stream
  void LiveviewMjpgCam();
  void LiveviewMxpegCam();
  void LiveviewMpeg4CamByMjpg();
  void ForwardStream();  // of a camera that another recording server owns

  void FFmpegThreadStop();

  std::int32_t m_CamId = 0;
  std::int32_t m_StreamNo = 0;  // of the mobile profile
  LiveStreamUpdater m_StmUpdater;
  std::int32_t m_ProfileParam = 0;  // frames a second of the mobile profile
  std::int32_t m_OwnerNdId = 0;     // 0: recorded by this host
  std::int32_t m_CamIdOnRec = 0;
  char m_PidFilePath[PATH_MAX] = {};
  std::string m_FifoPath;
  std::string m_Spare;
  std::string m_SlicePathFmt;
  std::string m_HlsDir;
  std::string m_M3u8Path;
  std::string m_SliceUrlPrefix;
  std::int32_t m_VideoType = 0;  // a CAM_VIDEO_TYPE
  void* m_ShmAddr = nullptr;     // ring of the HLS feeder, detached by the destructor
  H264TS m_Segmenter;
  pthread_t m_FfmpegThread = 0;
  // Created and destroyed, never locked or signalled: the host's headers promise them to the handler's layout.
  pthread_mutex_t m_Mutex;
  pthread_cond_t m_Cond;
};

static_assert(PATH_MAX == 4096, "m_PidFilePath holds 4096 bytes");
