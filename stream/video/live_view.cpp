// What live views share: what they do before a picture is sent, and the camera's connection in between.
#include <cstdlib>

#include "videoStreaming.h"
#include "video_unit.h"

bool VideoStreamingHandler::BeginLocalView(const char* func) {
  const std::string text = m_pRequest->GetParam("timestamp", "0").asString();
  const long timestamp = strtol(text.c_str(), nullptr, 10);
  if (SetupSignalHandler() != 0) {
    QM_LOG_AS(func, LOG_LEVEL_FATAL, "Failed to setup signal handler\n");
    return false;
  }
  const std::string sid = m_pRequest->GetSessionID();
  if (CheckTimeStamp(sid.c_str(), timestamp) != 0) {
    QM_LOG_AS(func, LOG_LEVEL_ERROR, "Cam[%d]: Failed to check timestamp.\n", m_CamId);
    return false;
  }
  return true;
}

bool VideoStreamingHandler::MayGoOn(const char* func, int& passes, int passesBetweenChecks) {
  if (passes < passesBetweenChecks) {
    ++passes;
    return true;
  }
  passes = 0;
  if (GetCamConnStatus(m_CamId) == 1) return true;
  QM_LOG_AS(func, LOG_LEVEL_ERROR, "Cam[%d]: status abnormal. Stop liveview.\n", m_CamId);
  return false;
}

void VideoStreamingHandler::OutputMjpegStream() {
  if (m_OwnerNdId != 0) {
    ForwardStream("mjpeg");
    return;
  }
  if (!BeginLocalView(__func__)) return;
  if (m_VideoType == VIDEO_TYPE_MJPEG) {
    LiveviewMjpgCam();
  } else {
    LiveviewMpeg4CamByMjpg();
  }
}

void VideoStreamingHandler::OutputMxpegStream() {
  if (m_OwnerNdId != 0) {
    ForwardStream("mxpeg");
    return;
  }
  if (!BeginLocalView(__func__)) return;
  QM_LOG(LOG_LEVEL_INFO, "Cam[%d]: m_VideoType: %d\n", m_CamId, m_VideoType);
  if (m_VideoType == VIDEO_TYPE_MXPEG) {
    LiveviewMxpegCam();
  } else {
    // No body at all, on purpose: a client that asks for MxPEG can show nothing else.
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Wrong m_VideoType[%d] in OutputMxpegStream.\n", m_CamId, m_VideoType);
  }
}
