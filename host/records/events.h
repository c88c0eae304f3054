// Recorded events in the records: what was recorded, what is being recorded, what was asked for.
//
// A row is written before its file is made and says "being deleted" before its file is removed; so whatever a killed
// program left half done is found again in ListUnfinished. Operations fail as those of Database do, with its last
// error set.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/records.h"

namespace oculora {

enum class EventState : std::int32_t { kReady = 0, kRecording = 1, kRequested = 2, kFailed = 3, kDeleting = 4 };
enum class EventCause : std::int32_t { kContinuous = 0, kRequest = 1, kImport = 2 };

// Device type of an alert that an analytics task raised.
constexpr int kAnalyticsDevice = 1024;

struct EventRecord {
  int id = 0;  // 0 on adding: the next free one
  int camId = 0;
  int type = 0;        // REC_EVENT_TYPE
  int deviceType = 0;  // of an alert's source
  int task = 0;        // the analytics task's setting, with device type kAnalyticsDevice
  EventCause cause = EventCause::kContinuous;
  EventState state = EventState::kReady;
  std::string reason;         // of a failure, for people
  std::string path;           // of the file, below the storage's recordings; empty: none yet
  int videoType = 0;          // CAM_VIDEO_TYPE of the pictures in it
  std::int64_t startUs = 0;   // of the first picture, or of the request; microseconds since 1970
  std::int64_t wantedUs = 0;  // how long to record; 0: until the file is full
  std::int64_t lengthUs = 0;
  std::int64_t bytes = 0;
  int frames = 0;
  bool kept = false;        // spared when old recordings are deleted
  std::int64_t played = 0;  // when it was first played, seconds since 1970; 0: not yet
};

struct EventQuery {
  int camId = 0;            // 0: every camera
  std::int64_t fromUs = 0;  // events that begin at this time or later
  std::int64_t toUs = 0;    // events that begin before this time; 0: no limit
  // Where the page before ended: its last event. 0: the first page.
  std::int64_t afterStartUs = 0;
  int afterId = 0;
  int limit = 50;
};

enum class RecordingState : std::int32_t { kOff = 0, kRecording = 1, kWaiting = 2, kFailed = 3 };

struct CameraRecording {
  int camId = 0;
  RecordingState state = RecordingState::kOff;
  std::string reason;      // for people
  std::int64_t since = 0;  // seconds since 1970
};

struct RecordingTotals {
  std::int64_t events = 0;
  std::int64_t bytes = 0;
};

// A view of a database, which must outlive it; as cheap as a reference.
class EventTable {
 public:
  explicit EventTable(Database& database);

  std::optional<EventRecord> Load(int id);
  // Newest first, without those being deleted. One step of an index for each row.
  std::vector<EventRecord> List(const EventQuery& query);
  // Those asked for, being recorded or being deleted, oldest first. `camId` 0: of every camera.
  std::vector<EventRecord> ListUnfinished(int camId);
  // Ready ones and failed ones that are not kept, oldest first.
  std::vector<EventRecord> ListDeletable(int limit);
  RecordingTotals Totals();  // of all that have a file

  // Adds a row as it stands and returns its id. With an `extension` (".avi") the row gets the path of its file, made of
  // camera, time and id.
  std::optional<int> Add(const EventRecord& event, const char* extension);
  // A request becomes a recording: its start, codec and path are set. The path; empty on failure, also when it is no
  // longer asked for.
  std::string Begin(int id, std::int64_t startUs, int videoType, const char* extension);
  bool Finish(int id, const struct RecordingFacts& facts);  // ready
  bool Fail(int id, const std::string& reason);
  bool Stop(int id);  // ends a recording that was asked for, from another process; soon, not at once
  bool MarkDeleting(int id);
  bool Expire(int id);                 // marks it for being old, unless somebody keeps it meanwhile
  bool MarkCameraDeleting(int camId);  // all of a camera
  bool Remove(int id);                 // the row alone
  bool SetKept(int id, bool kept);
  bool SetPlayed(int id, std::int64_t nowSeconds);  // of one not played before

  // What recording a camera has come to. Setting the same state and reason again writes nothing.
  bool SetCameraState(int camId, RecordingState state, const std::string& reason, std::int64_t nowSeconds);
  std::vector<CameraRecording> ListCameraStates();

 private:
  struct DatabaseImpl& m_Database;
};

// The path of an event's file below the storage's recordings: "3/2026-11-21/15-42-10-57.mp4". Times are UTC.
std::string EventPath(int camId, std::int64_t startUs, int id, const char* extension);
// The thumbnail of that file.
std::string ThumbnailPath(const std::string& path);
// What files of a camera's pictures are called: ".avi" for JPEG pictures, ".mp4" for predicted ones.
const char* RecordingExtension(int videoType);

}  // namespace oculora
