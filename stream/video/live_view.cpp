// What live view does before a picture is sent.
#include <cstdlib>

#include "videoStreaming.h"
#include "video_unit.h"

bool VideoStreamingHandler::BeginLocalView() {
  const std::string text = m_pRequest->GetParam("timestamp", "0").asString();
  const long timestamp = strtol(text.c_str(), nullptr, 10);
  if (SetupSignalHandler() != 0) {
    QM_LOG(LOG_LEVEL_FATAL, "Failed to setup signal handler\n");
    return false;
  }
  const std::string sid = m_pRequest->GetSessionID();
  if (CheckTimeStamp(sid.c_str(), timestamp) != 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to check timestamp.\n", m_CamId);
    return false;
  }
  return true;
}

void VideoStreamingHandler::OutputMjpegStream() {
  if (m_OwnerNdId != 0 || m_VideoType != VIDEO_TYPE_MJPEG) {
    // Forwarding and decoding come later.
    PrintPlainText("Format not supported.\n\r");
    return;
  }
  if (BeginLocalView()) LiveviewMjpgCam();
}

void VideoStreamingHandler::OutputMxpegStream() {
  // Forwarding and the MxPEG loop come later.
  PrintPlainText("Format not supported.\n\r");
}
