// Recorded events of the platform interface, read from the records of this host, of a mount or of an archive.
#include "velm/event.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "records/events.h"
#include "records/request_storage.h"
#include "webapi/log_line.h"

namespace {

using oculora::EventRecord;
using oculora::EventState;
using oculora::StorageKind;

constexpr char kLogUnit[] = "records/event";
constexpr int kPatienceMs = 200;  // a viewer waits so long at most

// A recording asked for by its id alone may be one that an alert raised: requests from other hosts name no type.
bool IsPlayable(const EventRecord& event, int type) {
  return (type == REC_EVENT_TYPE_RECORDING || event.type == type) &&
         (event.state == EventState::kReady || event.state == EventState::kRecording);
}

// The row of an event in the records that GetDBType named; empty when there is no such playable one.
std::optional<EventRecord> FindPlayable(const oculora::StorageInUse& storage, int id, int type) {
  if (storage.records == nullptr || id < 1) return std::nullopt;
  std::optional<EventRecord> event = oculora::EventTable(*storage.records).Load(id);
  if (event && IsPlayable(*event, type)) return event;
  return std::nullopt;
}

// A camera of a managed recording server that stands for all of them; 0 when there is none.
int CameraOfServer(int ndId) {
  oculora::Database* records = oculora::RequestDatabase();
  if (records == nullptr) return 0;
  const std::vector<oculora::ServerRecord> servers = records->ListServers();
  if (std::none_of(servers.begin(), servers.end(), [&](const auto& server) { return server.id == ndId; })) return 0;
  int beingRemoved = 0;
  for (const oculora::CameraRecord& camera : records->ListCameras()) {
    if (camera.ownerNdId != ndId) continue;
    if (!camera.deleting) return camera.id;
    beingRemoved = camera.id;
  }
  return beingRemoved;
}

bool StaysInside(const std::filesystem::path& path) {
  if (path.empty() || path.is_absolute()) return false;
  for (const auto& part : path) {
    if (part == "..") return false;
  }
  return true;
}

}  // namespace

Event::~Event() = default;
AlertEvent::~AlertEvent() = default;

int Event::GetCamId() const { return m_CamId; }
void Event::GetPath(std::string& path) const { path = m_Path; }

int Event::Load(int id, int dbArg, int dbType, int ndId) {
  if (ndId > 0) {
    const int camId = id < 1 ? 0 : CameraOfServer(ndId);
    if (camId == 0) return -1;
    *this = Event(static_cast<REC_EVENT_TYPE>(m_Type));  // nothing of an earlier event stays
    m_Id = id;
    m_CamId = camId;
    return 0;
  }
  const oculora::StorageInUse storage = oculora::RequestStorage(static_cast<StorageKind>(dbType), dbArg);
  std::optional<EventRecord> record = FindPlayable(storage, id, m_Type);
  if (!record) return -1;

  // Tasks are looked up among those of this host: an event of another host's task stands for its camera alone.
  const bool isOwn = dbType == static_cast<int>(StorageKind::kOwn);
  const bool isTask = m_Type == REC_EVENT_TYPE_ALERT && record->deviceType == oculora::kAnalyticsDevice;
  m_Id = record->id;
  m_CamId = isTask && isOwn ? record->task : record->camId;
  m_DeviceType = isTask && !isOwn ? 0 : record->deviceType;
  m_Unplayed = isOwn && record->played == 0;
  m_Path = std::move(record->path);
  m_RecordingsDir = oculora::RecordingsDirIn(storage.directory);
  return 0;
}

void Event::NotifyFirstChunk() {
  if (!m_Unplayed) return;
  m_Unplayed = false;
  std::string error;
  auto records =
      oculora::Database::Open(oculora::Database::Mode::kReadWrite, &error, oculora::kRecordsPath, kPatienceMs);
  if (records && !oculora::EventTable(*records).SetPlayed(m_Id, time(nullptr))) error = records->LastError();
  if (!error.empty()) HOST_LOG_ERROR("event %d: its playback cannot be noted: %s", m_Id, error.c_str());
}

Event* RecFactory::NewByType(REC_EVENT_TYPE type) {
  switch (type) {
    case REC_EVENT_TYPE_RECORDING:
      return new Event;
    case REC_EVENT_TYPE_ALERT:
      return new AlertEvent;
  }
  return nullptr;
}

int GetDBType(int mountId, int archId, int& dbArg) {
  StorageKind kind = StorageKind::kOwn;
  dbArg = 0;
  if (archId > 0) {
    kind = StorageKind::kArchive;
    dbArg = archId;
  } else if (mountId > 0) {
    kind = StorageKind::kMount;
    dbArg = mountId;
  }
  return static_cast<int>(kind);
}

int GetEventFullPathAndSize(const Event& event, std::string& path, unsigned long long& size) {
  if (!StaysInside(event.m_Path)) return -1;
  const std::string full = event.m_RecordingsDir + "/" + event.m_Path;
  struct stat status {};
  if (stat(full.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  path = full;
  size = static_cast<unsigned long long>(status.st_size);
  return 0;
}
