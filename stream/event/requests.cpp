// Requests for recorded events: who may see what, which event, by which method.
#include "event_unit.h"
#include "streaming.h"
#include "velm/event.h"
#include "velm/vexasetting.h"

const std::string kDetectionTypeNames[8] = {
    "object_tracking",
    "motion_detection",
    "non_idle_zone",
    "people_counting_wall_mount",
    "foreign_object",
    "missing_object",
    "people_counting_ceilling_mount",
    "object_detection",
};

std::string gSessionId;

namespace {

constexpr int kAnalyticsDevice = 1024;
constexpr char kFirstByteRange[] = "bytes=0";  // begins every range that starts at the first byte, and some others

// An event of an analytics task carries the task where others carry the camera.
int CameraOf(const Event& event) {
  const int camId = event.GetCamId();
  const auto* alert = dynamic_cast<const AlertEvent*>(&event);
  VexaSetting setting;
  const bool isTask = alert != nullptr && alert->GetDeviceType() == kAnalyticsDevice && setting.LoadById(camId) == 0;
  return isTask ? setting.GetCamId() : camId;
}

bool BeginsFile(const std::string& range) { return range.empty() || range.starts_with(kFirstByteRange); }

}  // namespace

void StreamingHandler::HandleEventStream() {
  if (Authenticate() == 0) {
    m_pResponse->SetError(kErrNotAdmitted, Json::Value());
    return;
  }
  if (ServeEvent()) {
    m_pResponse->SetEnableOutput(false);
  } else {
    WriteErrorResponse(Json::Value());
  }
}

StreamingHandler::EventRequest StreamingHandler::ReadEventRequest() const {
  EventRequest request;
  request.writeHeader = m_pRequest->GetParam("writeHeader", true).asBool();
  request.isRedirectCgi = IsRedirectCgi();
  const bool isAnalytics = m_pRequest->GetParam("analyevent", false).asBool();
  request.type = m_pRequest->GetParam("recEvtType", 0).asInt();
  if (request.type == REC_EVENT_TYPE_RECORDING && isAnalytics) request.type = REC_EVENT_TYPE_ALERT;
  request.mountId = m_pRequest->GetParam("mountId", 0).asInt();
  request.archId = m_pRequest->GetParam("archId", 0).asInt();
  return request;
}

bool StreamingHandler::ServeEvent() {
  const EventRequest request = ReadEventRequest();
  if (!PrivProfileGetByUid(static_cast<unsigned>(GetUid())).IsOperAllow(PRIV_OPER_PLAYBACK)) {
    SetErrorCode(kErrNotAdmitted, "", "");
    return false;
  }
  int ndId = 0;
  int camIdOnNd = 0;
  if (GetRealEventAndNdId(ndId, camIdOnNd) != 0) return false;
  const std::unique_ptr<Event> event = LoadEvent(request, ndId);
  if (!event) return false;
  const int camId = request.type == REC_EVENT_TYPE_ALERT ? CameraOf(*event) : event->GetCamId();
  // The camera of an archived event may be gone for long.
  if (request.archId <= 0 && !IsCameraPlayable(camId, request)) return false;
  const std::string range = RequestedRange(request.isRedirectCgi);
  const bool isOwn = request.mountId == 0 && ndId == 0;
  if (isOwn && request.writeHeader && BeginsFile(range)) event->NotifyFirstChunk();
  return SendByMethod(*event, ndId, camIdOnNd, range);
}

std::unique_ptr<Event> StreamingHandler::LoadEvent(const EventRequest& request, int ndId) const {
  std::unique_ptr<Event> event(RecFactory::NewByType(static_cast<REC_EVENT_TYPE>(request.type)));
  if (!event) {
    QM_LOG_ALWAYS("HandleEventStream", "Failed to create event object\n");
    return nullptr;
  }
  int dbArg = 0;
  const int dbType = GetDBType(request.mountId, request.archId, dbArg);
  if (event->Load(m_EventId, dbArg, dbType, ndId) != 0) {
    QM_LOG_ALWAYS("HandleEventStream", "Failed to load event [%d] with mountId [%d], NdId [%d], ArchId [%d].\n",
                  m_EventId, request.mountId, ndId, request.archId);
    return nullptr;
  }
  return event;
}

bool StreamingHandler::IsCameraPlayable(int camId, const EventRequest& request) {
  Camera camera;
  if (camera.Load(camId, request.mountId, 0) != 0) {
    SetErrorCode(kErrBadRequest, "", "");
    QM_LOG_ALWAYS("HandleEventStream", "Failed to load camera [%d].\n", camId);
    return false;
  }
  // What was recorded may be seen while the camera is off.
  const int uid = request.isRedirectCgi ? kSystemUid : GetUid();
  const CamStatusRule rule{true, false, false, false, false, CAM_PRIV_PLAYBACK, uid};
  const DEV_STATUS status = GetCamStatusByRule(camera, rule);
  if (status == DEV_STATUS_USABLE) return true;
  SetErrorCode(CamStatusToWebApiErr(status), "", "");
  return false;
}

std::string StreamingHandler::RequestedRange(bool isRedirectCgi) const {
  return isRedirectCgi ? m_pRequest->GetParam("HTTP_RANGE", "").asString() : m_pRequest->GetEnv("HTTP_RANGE", "");
}

bool StreamingHandler::SendByMethod(const Event& event, int ndId, int camIdOnNd, const std::string& range) {
  if (m_pRequest->GetAPIMethod() != "EventMultipartFetch") {
    return WriteFileStream(event, ndId, camIdOnNd, range) == 0;
  }
  const bool played = MultipartFetch(event, ndId, camIdOnNd) == 0;
  RemovePidFile();  // whatever became of the player, also when another server played
  return played;
}
