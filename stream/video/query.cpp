// The "Query" method: which live format to ask for.
#include "videoStreaming.h"
#include "video_unit.h"

void VideoStreamingHandler::HandleQuery(Camera& camera) {
  const DEV_STATUS status = GetCamStatusByRule(camera, MakeStatusRule(true));
  if (status != DEV_STATUS_USABLE) {
    QM_LOG(LOG_LEVEL_ERROR, "Invalid Cam[%d]: Status: %d\n", m_CamId, status);
    SetErrorCode(CamStatusToWebApiErr(status), "", "");
    WriteErrorResponse(Json::Value());
    return;
  }
  Json::Value result;
  // Exactly type 3: a camera of type 7 is told "mjpeg", although closing treats both alike.
  result["format"] = m_VideoType == VIDEO_TYPE_H264 ? "hls" : "mjpeg";
  if (m_ErrCode != kErrNone) {
    WriteErrorResponse(Json::Value());
  } else {
    m_pResponse->SetSuccess(result);
  }
}
