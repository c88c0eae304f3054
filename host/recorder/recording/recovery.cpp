// Bringing rows and files of recordings together again after a kill, a crash or a power cut.
#include "recorder/recording/recovery.h"

#include <sys/stat.h>
#include <velm/camera.h>

#include <cerrno>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <set>
#include <unordered_set>
#include <vector>

#include "recorder/clock.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/file_writer.h"
#include "recorder/recording/recording_lock.h"
#include "recorder/recording/stray_files.h"
#include "records/events.h"

namespace oculora {
namespace {

namespace fs = std::filesystem;

constexpr int kPage = 500;
// A file that is copied here by another program grows; one that did not for so long will not any more.
constexpr std::int64_t kImportPauseSeconds = 600;

std::string Named(const EventRecord& event) {
  return "event " + std::to_string(event.id) + " of camera " + std::to_string(event.camId);
}

std::string InPictures(const RecordingFacts& facts) {
  return std::to_string(facts.frames) + " pictures, " + std::to_string(facts.lengthUs / 1000000) + " s";
}

bool IsBeingCopied(const EventRecord& event) {
  struct stat status {};
  return event.cause == EventCause::kImport && stat(FullPath(event.path).c_str(), &status) == 0 &&
         WallClockUs() / 1000000 - status.st_mtime < kImportPauseSeconds;
}

class Recovery {
 public:
  Recovery(Database& records, int camId, const RecoveryReport& report)
      : m_Records(records), m_Table(records), m_CamId(camId), m_Report(report) {}

  bool Run() {
    for (const EventRecord& event : m_Table.ListUnfinished(m_CamId)) {
      if (event.state == EventState::kRecording) Complete(event);
      if (event.state == EventState::kDeleting) Delete(event);
    }
    const bool readable = ReadPaths() && !m_Records.IsUnreadable();
    if (!readable) {
      Undone("the recordings of camera " + std::to_string(m_CamId) +
             " cannot be compared with the records: " + m_Records.LastError());
      return false;
    }
    for (const std::string& path : ListCameraFiles(m_CamId)) {
      if (!m_Paths.contains(path)) HandleStray(path);
    }
    RemoveRowsWithoutFile();
    return m_AllDone && !m_Records.IsUnreadable();
  }

 private:
  void Undone(const std::string& sentence) {
    m_AllDone = false;
    m_Report(sentence);
  }

  void Complete(const EventRecord& event) {
    if (IsBeingCopied(event)) return;
    RecordingFacts facts;
    std::string reason;
    // What another program was copying here is either whole, and its row says so, or of no use.
    if (event.cause == EventCause::kImport) return Delete(event);
    switch (CompleteEvent(m_Records, event, nullptr, facts, reason)) {
      case Completed::kReady:
        return m_Report(Named(event) + " was completed: " + InPictures(facts));
      case Completed::kRemoved:
        return m_Report(Named(event) + " was removed: " + reason);
      case Completed::kNotOurs:
        return;
      case Completed::kNotNow:
        return Undone(Named(event) + " cannot be completed: " + reason);
    }
  }

  void Delete(const EventRecord& event) {
    std::string reason;
    if (DeleteEvent(m_Records, event, reason)) return m_Report(Named(event) + " was deleted to the end");
    Undone(Named(event) + " cannot be deleted: " + reason);
  }

  // Every path that a row of the camera names, and that of its thumbnail.
  bool ReadPaths() {
    EventQuery query{.camId = m_CamId, .limit = kPage};
    for (;;) {
      const std::vector<EventRecord> page = m_Table.List(query);
      if (page.empty()) break;
      for (const EventRecord& event : page) {
        if (event.path.empty()) continue;
        m_Paths.insert(event.path);
        m_Paths.insert(ThumbnailPath(event.path));
        if (event.state == EventState::kReady) NoteIfMissing(event);
      }
      query.afterStartUs = page.back().startUs;
      query.afterId = page.back().id;
    }
    for (const EventRecord& event : m_Table.ListUnfinished(m_CamId)) m_Paths.insert(event.path);
    return !m_Records.IsUnreadable();
  }

  void NoteIfMissing(const EventRecord& event) {
    struct stat status {};
    if (stat(FullPath(event.path).c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
      m_Missing.push_back(event);
    }
  }

  void HandleStray(const std::string& path) {
    // Its row may be younger than the list.
    const StrayFile stray = ReadStrayName(path);
    const auto row = m_Table.Load(stray.eventId);
    if (m_Records.IsUnreadable() || (row && (row->path == path || ThumbnailPath(row->path) == path))) return;
    if (stray.kind == StrayFile::Kind::kForeign) return;
    RecordingFacts facts;
    std::string reason;
    if (stray.kind == StrayFile::Kind::kRecording) {
      if (FinishFile(FullPath(path), facts, reason)) return Adopt(path, stray, facts);
      if (!facts.worthless) return Undone(path + " belongs to no event and is left alone: " + reason);
    }
    if (!RemoveEventFiles(path, reason)) return Undone(reason);
    m_Report(path + " was removed: it belonged to no event");
  }

  void Adopt(const std::string& path, const StrayFile& stray, const RecordingFacts& facts) {
    EventRecord event;
    event.camId = m_CamId;
    event.path = path;
    event.startUs = stray.startUs;
    event.lengthUs = facts.lengthUs;
    event.bytes = facts.bytes;
    event.frames = facts.frames;
    event.videoType = VideoTypeOf(path);
    const auto id = m_Table.Add(event, nullptr);
    if (!id) return Undone(path + " cannot be noted as an event: " + m_Records.LastError());
    m_Paths.insert(ThumbnailPath(path));
    m_Report(path + " belonged to no event and is event " + std::to_string(*id) + " now: " + InPictures(facts));
  }

  // The camera's, when files of its kind are called so.
  int VideoTypeOf(const std::string& path) {
    const auto camera = m_Records.LoadCamera(m_CamId);
    if (camera && path.ends_with(RecordingExtension(camera->videoType))) return camera->videoType;
    return path.ends_with(".avi") ? VIDEO_TYPE_MJPEG : VIDEO_TYPE_H264;
  }

  void RemoveRowsWithoutFile() {
    if (m_Missing.empty()) return;
    std::error_code error;
    if (!fs::exists(kRecordingsDir, error) || fs::is_empty(kRecordingsDir, error) || error) {
      return Undone(std::string(kRecordingsDir) +
                    " is empty, although the records name recordings: is its disk mounted?");
    }
    for (const EventRecord& event : m_Missing) {
      std::string reason;
      RemoveEventFiles(event.path, reason);  // the thumbnail
      if (!m_Table.Remove(event.id)) return Undone(Named(event) + " cannot be removed: " + m_Records.LastError());
      m_Report(Named(event) + " was removed: its file " + event.path + " is missing");
    }
  }

  Database& m_Records;
  EventTable m_Table;
  const int m_CamId;
  const RecoveryReport& m_Report;
  std::unordered_set<std::string> m_Paths;
  std::vector<EventRecord> m_Missing;
  bool m_AllDone = true;
};

}  // namespace

bool RecoverCamera(Database& records, int camId, const RecoveryReport& report) {
  return Recovery(records, camId, report).Run();
}

bool RecoverRecordings(Database& records, int camId, const RecoveryReport& report) {
  std::set<int> cameras;
  if (camId != 0) cameras.insert(camId);
  for (const CameraRecord& camera : camId == 0 ? records.ListCameras() : std::vector<CameraRecord>()) {
    cameras.insert(camera.id);
  }
  bool allDone = true;
  for (const int id : cameras) {
    RecordingLock lock;
    if (lock.Lock(id, 0)) allDone = RecoverCamera(records, id, report) && allDone;
  }
  return allDone && !records.IsUnreadable();
}

}  // namespace oculora
