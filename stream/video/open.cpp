// The "Open" method: one more user of a camera's HLS stream.
#include <sys/time.h>

#include "remux_lock.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kHandleOpen[] = "HandleOpen";

}  // namespace

void VideoStreamingHandler::HandleOpen(Camera& camera) {
  const bool relayed = IsRedirectCgi();
  const std::string format = m_pRequest->GetParam("format", "").asString();
  const DEV_STATUS status = GetCamStatusByRule(camera, MakeStatusRule(true));
  bool opened = false;
  if (status != DEV_STATUS_USABLE) {
    SetErrorCode(CamStatusToWebApiErr(status), "", "");
  } else {
    QM_LOG(LOG_LEVEL_INFO, "Cam[%d]: Format: %s\n", m_CamId, format.c_str());
    opened = m_OwnerNdId == 0 ? OpenHere(format, relayed) : OpenOnOwner(format);
  }
  if (opened) {
    m_pResponse->SetSuccess(Json::Value());
  } else {
    WriteErrorResponse(Json::Value());
  }
}

bool VideoStreamingHandler::OpenHere(const std::string& format, bool relayed) {
  if (format != "hls") return true;  // nothing to start
  // From counting until the new remux has its pid file, which tells the next user that there is one.
  const RemuxLock lock(m_CamId);
  const int count = IncFfmpegRefCnt();
  QM_LOG_AS(kHandleOpen, LOG_LEVEL_INFO, "Cam[%d]: RefCnt: %d\n", m_CamId, count);
  if (count != 1) {
    QM_LOG_AS(kHandleOpen, LOG_LEVEL_ERROR, "Cam[%d]: FFMPEG has been already running.\n", m_CamId);
    utimes(m_PidFilePath, nullptr);  // so that it does not end for want of viewers before this one's first slice
    return true;
  }
  if (SetupFfmpegRemux(relayed) != 0) {
    StopFfmpegRemux(true);  // the count goes with the directory
    QM_LOG_AS(kHandleOpen, LOG_LEVEL_ERROR, "Cam[%d]: Failed to setup ffmpeg remux.\n", m_CamId);
    SetErrorCode(kErrOperationFailed, "", "");
    return false;
  }
  RunFfmpegRemux();
  return true;
}

// The owner is told how the client knows camera and host, so that the URLs of slices lead back through this host.
bool VideoStreamingHandler::OpenOnOwner(const std::string& format) {
  if (!IsEnvSet("HTTP_HOST")) {
    QM_LOG_AS(kHandleOpen, LOG_LEVEL_ERROR, "Cam[%d]: Failed to get Nd ip and port.\n", m_CamId);
    SetErrorCode(kErrOperationFailed, "", "");
    return false;
  }
  Json::Value info = GetAPIInfo();
  info["cameraId"] = m_CamIdOnRec;
  info["itemType"] = 0;
  info["format"] = format;
  info["SID"] = m_pRequest->GetSessionID();
  info["HostIp"] = m_pRequest->GetEnv("HTTP_HOST", "");
  info["CamIdOnHost"] = m_CamId;
  info["isRedirectCgi"] = 1;
  if (SendWebAPIToRec(m_OwnerNdId, JsonToStrPair(info, true, true)) != 0) {
    QM_LOG_AS(kHandleOpen, LOG_LEVEL_FATAL, "SendWebAPIToRec failted.[NdId: %d]\n", m_OwnerNdId);
  }
  return true;
}
