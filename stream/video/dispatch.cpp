// Construction, loading the camera, admission, method and format dispatch.
#include <sys/shm.h>

#include <cstdio>

#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kHlsRoot[] = "/tmp/ndcam/";
constexpr char kRemuxPidFile[] = "/tmp/webapivdostm.pid";

}  // namespace

VideoStreamingHandler::VideoStreamingHandler(VELM::APIRequest* request, VELM::APIResponse* response)
    : VideoStreamingBase(request, response) {
  pthread_mutex_init(&m_Mutex, nullptr);
  pthread_cond_init(&m_Cond, nullptr);
}

VideoStreamingHandler::~VideoStreamingHandler() {
  FFmpegThreadStop();
  if (m_ShmAddr != nullptr) {
    shmdt(m_ShmAddr);
    m_ShmAddr = nullptr;
  }
  pthread_mutex_destroy(&m_Mutex);
  pthread_cond_destroy(&m_Cond);
}

int VideoStreamingHandler::LoadBasicDataMember(Camera& camera) {
  const int id = m_pRequest->GetParam("cameraId", 0).asInt();
  if (id < 1) {
    QM_LOG(LOG_LEVEL_ERROR, "Wrong parameter.\n");
    return -1;
  }
  if (camera.Load(id, 0, 0) != 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Fail to load cam[%d].\n", id);
    return -1;
  }
  m_CamId = id;
  m_StreamNo = camera.GetUiStreamNo(camera.GetMobileProfile());
  m_StmUpdater.Init(m_CamId, m_StreamNo);
  m_ProfileParam = camera.GetStreamSetting(camera.GetMobileProfile()).fps;
  m_OwnerNdId = camera.GetOwnerNdId();
  m_CamIdOnRec = camera.GetIdOnRec();
  m_VideoType = camera.GetVideoType();

  m_HlsDir = kHlsRoot + std::to_string(id);
  m_M3u8Path = m_HlsDir + "/" + "hls.m3u8";
  m_FifoPath = m_HlsDir + "/" + "fifo";
  m_SlicePathFmt = m_HlsDir + "/" + "%d.ts";
  snprintf(m_PidFilePath, sizeof(m_PidFilePath), "%s.%d", kRemuxPidFile, id);
  return 0;
}

void VideoStreamingHandler::HandleProcess() {
  Camera camera;
  if (LoadBasicDataMember(camera) != 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Fail to load basic camera info.\n");
    m_pResponse->SetError(kErrBadRequest, Json::Value());
    return;
  }
  const bool byStmKey = Authenticate() == 0;
  if (byStmKey && !AuthByStmKey()) {
    QM_LOG(LOG_LEVEL_ERROR, "Authorize failed.\n");
    m_pResponse->SetError(kErrNotAdmitted, Json::Value());
    return;
  }
  const std::string method = m_pRequest->GetAPIMethod();
  if (method == "Stream") {
    HandleStream(camera, byStmKey);
  } else if (method == "Open") {
    HandleOpen(camera);
  } else if (method == "Close") {
    HandleClose(camera);
  } else if (method == "Query") {
    HandleQuery(camera);
  } else {
    m_pResponse->SetError(kErrBadRequest, Json::Value());
  }
}

CamStatusRule VideoStreamingHandler::MakeStatusRule(bool checkPrivilege) {
  const int uid = IsRedirectCgi() ? kSystemUid : GetUid();
  return {checkPrivilege, true, true, true, false, CAM_PRIV_LIVE, uid};
}

void VideoStreamingHandler::HandleStream(Camera& camera, bool byStmKey) {
  const std::string format = m_pRequest->GetParam("format", "hls").asString();
  const std::string sliceId = m_pRequest->GetParam("SliceId", "").asString();
  const DEV_STATUS status = GetCamStatusByRule(camera, MakeStatusRule(!byStmKey));
  if (status != DEV_STATUS_USABLE) {
    SetErrorCode(CamStatusToWebApiErr(status), "", "");
  } else {
    QM_LOG(LOG_LEVEL_INFO, "Cam[%d]: Format: %s SliceId: %s\n", m_CamId, format.c_str(), sliceId.c_str());
    if (format == "hls") {
      sliceId.empty() ? OutputM3u8() : OutputHls(sliceId);
    } else if (format == "mjpeg") {
      OutputMjpegStream();
    } else if (format == "mxpeg") {
      OutputMxpegStream();
    } else {
      PrintPlainText("Unsupported format.\n\r");
    }
    m_pResponse->SetEnableOutput(false);
  }
  // On every path: after a stream the output is switched off, so only the status reaches the client.
  WriteErrorResponse(Json::Value());
}
