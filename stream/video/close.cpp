// The "Close" method: one user less of a camera's HLS stream.
#include <sys/stat.h>

#include "remux_lock.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kHandleClose[] = "HandleClose";
constexpr int kVariantBit = 4;  // tells video types 3 and 7 apart; both are streamed as HLS

}  // namespace

void VideoStreamingHandler::HandleClose(Camera& camera) {
  const DEV_STATUS status = GetCamStatusByRule(camera, MakeStatusRule(true));
  bool closed = false;
  if (status != DEV_STATUS_USABLE) {
    QM_LOG(LOG_LEVEL_ERROR, "Invalid Cam[%d]: Status: %d\n", m_CamId, status);
    SetErrorCode(CamStatusToWebApiErr(status), "", "");
  } else {
    closed = m_OwnerNdId == 0 ? CloseHere() : CloseOnOwner();
  }
  if (closed) {
    m_pResponse->SetSuccess(Json::Value());
  } else {
    WriteErrorResponse(Json::Value());
  }
}

bool VideoStreamingHandler::CloseHere() {
  if ((m_VideoType & ~kVariantBit) != VIDEO_TYPE_H264) return true;
  const RemuxLock lock(m_CamId);  // a remux that is just starting has its pid file before this goes on
  struct stat info {};
  if (stat(m_PidFilePath, &info) != 0) {
    // The client receives this text and the error answer behind it, both.
    PrintPlainText("Already closed.\n\r");
    SetErrorCode(kErrOperationFailed, "", "");
    return false;
  }
  StopFfmpegRemux(false);
  return true;
}

bool VideoStreamingHandler::CloseOnOwner() {
  Json::Value info = GetAPIInfo();
  info["cameraId"] = m_CamIdOnRec;
  info["isRedirectCgi"] = 1;
  if (SendWebAPIToRec(m_OwnerNdId, JsonToStrPair(info, true, true)) != 0) {
    QM_LOG_AS(kHandleClose, LOG_LEVEL_FATAL, "SendWebAPIToRec failted.[NdId: %d]\n", m_OwnerNdId);
  }
  return true;
}
